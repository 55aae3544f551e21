// The one logger slot of the process, and the guard that holds it.
#include "tools/commands/LibraryLog.h"

#include <android/log.h>

#include <atomic>

namespace iqa_tools {

namespace {

std::mutex gSlot;                                     // held by the living guard
std::atomic<const LibraryLog::Sink*> gSink{nullptr};  // its sink

void Forward(const struct __android_logger_data* data, const char* message) {
    if (const LibraryLog::Sink* sink = gSink.load()) {
        (*sink)(data->priority, data->tag != nullptr ? data->tag : "", message);
    }
}

}  // namespace

LibraryLog::LibraryLog(Sink sink) : hold_(gSlot), sink_(std::move(sink)) {
    gSink.store(&sink_);
    __android_log_set_logger(Forward);
}

LibraryLog::~LibraryLog() {
    __android_log_set_logger(__android_log_stderr_logger);
    gSink.store(nullptr);
}

}  // namespace iqa_tools
