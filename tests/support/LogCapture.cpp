// A logger installed with __android_log_set_logger that records every line.
#include "tests/support/LogCapture.h"

#include "tests/support/Deadline.h"
#include "tools/commands/LogLines.h"

#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace iqa_test {

namespace {

std::mutex gMutex;
std::condition_variable gLogged;
std::vector<LogEntry> gEntries;
std::function<void(const std::string&)> gHook;

void Record(const struct __android_logger_data* data, const char* message) {
    std::function<void(const std::string&)> hook;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gEntries.push_back({data->priority, data->tag ? data->tag : "", message});
        hook = gHook;
    }
    gLogged.notify_all();
    if (hook) {
        hook(StripLine(message));
    }
}

}  // namespace

std::string StripLine(const std::string& message) {
    iqa_tools::LogLine parsed;
    if (!iqa_tools::ParseLogLine(message, &parsed)) {
        return message;
    }
    return "[" + parsed.operation + "]:" + parsed.text;
}

LogCapture::LogCapture() {
    Clear();
    __android_log_set_logger(Record);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    std::lock_guard<std::mutex> lock(gMutex);
    gHook = nullptr;
}

::testing::AssertionResult LogCapture::WaitFor(const std::string& line, size_t count) const {
    return WaitForMatches([&](const std::string& l) { return l == line; }, count,
                          "the line \"" + line + "\"");
}

::testing::AssertionResult LogCapture::WaitForMatches(
    const std::function<bool(const std::string&)>& match, size_t count,
    const std::string& what) const {
    std::unique_lock<std::mutex> lock(gMutex);
    if (gLogged.wait_for(lock, kDeadline, [&] {
            return static_cast<size_t>(std::count_if(
                       gEntries.begin(), gEntries.end(),
                       [&](const LogEntry& e) { return match(StripLine(e.message)); })) >= count;
        })) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << what << " was not logged " << count
                                         << " time(s) within " << kDeadline.count() << " s";
}

size_t LogCapture::CountMatches(const std::function<bool(const std::string&)>& match) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), match));
}

void LogCapture::OnLine(std::function<void(const std::string&)> hook) {
    std::lock_guard<std::mutex> lock(gMutex);
    gHook = std::move(hook);
}

std::vector<LogEntry> LogCapture::Entries() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gEntries;
}

std::vector<std::string> LogCapture::Lines() const {
    std::vector<std::string> lines;
    for (const LogEntry& e : Entries()) {
        lines.push_back(StripLine(e.message));
    }
    return lines;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gEntries.clear();
}

}  // namespace iqa_test
