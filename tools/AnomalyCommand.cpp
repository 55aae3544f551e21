// iqa anomaly: the black/green screen detector on a raw YUV 4:2:0 frame, with the recording
// service installed so that the big-data event it sends can be shown.
#include <android/log.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "CameraFiles.h"
#include "Commands.h"
#include "IqaAnomDetect.h"
#include "LogLines.h"
#include "McsRecordingService.h"

namespace iqa_tools {

namespace {

constexpr const char* kUsage =
    "usage: iqa anomaly FRAME WIDTH HEIGHT STRIDE NAME\n"
    "\n"
    "Runs the black/green screen detector on FRAME, a raw YUV 4:2:0 file (HEIGHT luma rows of\n"
    "STRIDE bytes, then the interleaved chroma plane with rows of WIDTH rounded down to even\n"
    "bytes), and prints the outcome and any big-data event sent under NAME.\n";

bool ParseNumber(const std::string& text, long long low, long long high, long long* value) {
    char* end = nullptr;
    *value = strtoll(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' && *value >= low && *value <= high;
}

// Bytes the detector's indexing can reach in a frame of this size.
uint64_t FrameBytes(uint64_t width, uint64_t height, uint64_t stride) {
    if (width < 2 || height < 2) {
        return 0;
    }
    return stride * height + (width & ~1ULL) * ((height - 1) / 2) + (width & ~1ULL);
}

void PrintOutcome(const struct __android_logger_data* data, const char* message) {
    LogLine line;
    if (data->tag != nullptr && std::string(data->tag) == "IqaDebug-AnomDetect" &&
        ParseLogLine(message, &line)) {
        printf("%s: %s\n", line.operation.c_str(), line.text.c_str());
    }
}

void PrintEvent(const MCS::RecordingService::Event& e) {
    const time_t seconds = static_cast<time_t>(e.record.timestamp / 1000);
    char when[32] = "";
    strftime(when, sizeof(when), "%Y-%m-%d %H:%M:%S", gmtime(&seconds));
    printf("big-data event %d: time %s.%03lld UTC, name \"%.24s\", type %d (%s)\n", e.eventId, when,
           static_cast<long long>(e.record.timestamp % 1000), e.record.jpegName, e.record.anomType,
           e.record.anomType == 0 ? "green screen" : "black screen");
}

}  // namespace

int AnomalyCommand(const Args& args) {
    if (WantsHelp(args, kUsage)) {
        return 0;
    }
    long long width = 0, height = 0, stride = 0;
    if (args.size() != 5 || !ParseNumber(args[1], 0, UINT32_MAX, &width) ||
        !ParseNumber(args[2], 0, UINT32_MAX, &height) ||
        !ParseNumber(args[3], 0, INT32_MAX, &stride)) {
        return UsageError("anomaly", "expected FRAME WIDTH HEIGHT STRIDE NAME with sizes >= 0",
                          kUsage);
    }
    Bytes frame;
    if (!ReadPhoto("anomaly", args[0], &frame)) {
        return 1;
    }
    const uint64_t needed = FrameBytes(width, height, stride);
    if (stride < width || frame.size() < needed) {
        fprintf(stderr,
                "iqa anomaly: %s holds %zu bytes; a %lldx%lld frame of stride %lld needs %llu\n",
                args[0].c_str(), frame.size(), width, height, stride,
                static_cast<unsigned long long>(needed));
        return 1;
    }
    MCS::RecordingService service;
    MCS::ScopedService installed(&service);
    __android_log_set_logger(PrintOutcome);
    IQA::IqaAnomDetect().AnomDetect(frame.data(), static_cast<unsigned>(width),
                                    static_cast<unsigned>(height), static_cast<int>(stride),
                                    args[4]);
    __android_log_set_logger(__android_log_stderr_logger);
    for (const MCS::RecordingService::Event& e : service.Events()) {
        PrintEvent(e);
    }
    if (service.Events().empty()) {
        printf("no big-data event\n");
    }
    return 0;
}

}  // namespace iqa_tools
