// iqa anomaly: the black/green screen detector on a raw YUV 4:2:0 frame, with the recording
// service installed so that the big-data event it sends can be shown.
#include <android/log.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>

#include "CameraFiles.h"
#include "Commands.h"
#include "IqaAnomDetect.h"
#include "LogLines.h"
#include "McsRecordingService.h"

namespace iqa_tools {

namespace {

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

struct AnomalyOptions {
    std::string frame;
    unsigned width = 0, height = 0;
    int stride = 0;
    std::string name;
};

int Anomaly(const AnomalyOptions& o) {
    Bytes frame;
    if (!ReadInput("anomaly", o.frame, &frame)) {
        return 1;
    }
    const uint64_t needed = FrameBytes(o.width, o.height, static_cast<uint64_t>(o.stride));
    if (static_cast<int64_t>(o.stride) < int64_t{o.width} || frame.size() < needed) {
        fprintf(stderr, "iqa anomaly: %s holds %zu bytes; a %ux%u frame of stride %d needs %llu\n",
                o.frame.c_str(), frame.size(), o.width, o.height, o.stride,
                static_cast<unsigned long long>(needed));
        return 1;
    }
    MCS::RecordingService service;
    MCS::ScopedService installed(&service);
    __android_log_set_logger(PrintOutcome);
    IQA::IqaAnomDetect().AnomDetect(frame.data(), o.width, o.height, o.stride, o.name);
    __android_log_set_logger(__android_log_stderr_logger);
    for (const MCS::RecordingService::Event& e : service.Events()) {
        PrintEvent(e);
    }
    if (service.Events().empty()) {
        printf("no big-data event\n");
    }
    return 0;
}

}  // namespace

void AddAnomalyCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<AnomalyOptions>();
    CLI::App* command = app.add_subcommand(
        "anomaly",
        "Run the black/green screen detector on FRAME, a raw YUV 4:2:0 file (HEIGHT luma rows of "
        "STRIDE bytes, then the interleaved chroma plane with rows of WIDTH rounded down to even "
        "bytes), and print the outcome and any big-data event sent under NAME.");
    command->add_option("FRAME", options->frame, "the raw frame")->required();
    command->add_option("WIDTH", options->width, "pixels a row")->required();
    command->add_option("HEIGHT", options->height, "rows")->required();
    command->add_option("STRIDE", options->stride, "bytes a luma row")
        ->required()
        ->check(CLI::Range(0, INT_MAX));
    command->add_option("NAME", options->name, "the name the event reports")->required();
    command->callback([options, status] { *status = Anomaly(*options); });
}

}  // namespace iqa_tools
