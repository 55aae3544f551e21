// A logger installed with __android_log_set_logger that records every line.
#include "LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <mutex>

namespace iqa_test {

namespace {

std::mutex gMutex;
std::vector<LogEntry> gEntries;

void Record(const struct __android_logger_data* data, const char* message) {
    std::lock_guard<std::mutex> lock(gMutex);
    gEntries.push_back({data->priority, data->tag ? data->tag : "", message});
}

}  // namespace

std::string StripLine(const std::string& message) {
    const size_t colon = message.find(':');
    const size_t close = message.find("]:");
    if (message.empty() || message[0] != '[' || colon == std::string::npos ||
        close == std::string::npos || colon >= close) {
        return message;
    }
    return message.substr(0, colon) + message.substr(close);
}

LogCapture::LogCapture() {
    Clear();
    __android_log_set_logger(Record);
}

LogCapture::~LogCapture() { __android_log_set_logger(__android_log_stderr_logger); }

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

std::vector<std::string> LogCapture::LinesWithTag(const std::string& tag) const {
    std::vector<std::string> lines;
    for (const LogEntry& e : Entries()) {
        if (e.tag == tag) {
            lines.push_back(StripLine(e.message));
        }
    }
    return lines;
}

bool LogCapture::Contains(const std::string& line) const { return Count(line) > 0; }

size_t LogCapture::Count(const std::string& line) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gEntries.clear();
}

}  // namespace iqa_test
