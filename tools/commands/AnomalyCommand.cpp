// iqa anomaly: the black/green screen detector on a raw YUV 4:2:0 frame, with the recording
// service installed so that the big-data event it sends can be shown.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>

#include "IqaAnomDetect.h"
#include "McsRecordingService.h"
#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/commands/LibraryLog.h"
#include "tools/commands/LogLines.h"
#include "tools/files/CameraFiles.h"

namespace iqa_tools {

namespace {

// Bytes the detector's indexing can reach in a frame of this size.
uint64_t FrameBytes(uint64_t width, uint64_t height, uint64_t stride) {
    if (width < 2 || height < 2) {
        return 0;
    }
    return stride * height + (width & ~1ULL) * ((height - 1) / 2) + (width & ~1ULL);
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

bool DetectAnomaly(const Bytes& frame, unsigned width, unsigned height, int stride,
                   const std::string& name, const std::string& frameName, AnomalyOutcome* outcome,
                   Failure* failure) {
    const uint64_t needed = FrameBytes(width, height, static_cast<uint64_t>(stride));
    if (static_cast<int64_t>(stride) < int64_t{width} || frame.size() < needed) {
        failure->reason = frameName + " holds " + std::to_string(frame.size()) + " bytes; a " +
                          std::to_string(width) + "x" + std::to_string(height) +
                          " frame of stride " + std::to_string(stride) + " needs " +
                          std::to_string(needed);
        return false;
    }
    MCS::RecordingService service;
    MCS::ScopedService installed(&service);
    {
        const LibraryLog capture([&](int, const char* tag, const char* message) {
            LogLine line;
            if (std::string(tag) == "IqaDebug-AnomDetect" && ParseLogLine(message, &line)) {
                outcome->lines.push_back(line.operation + ": " + line.text);
            }
        });
        IQA::IqaAnomDetect().AnomDetect(frame.data(), width, height, stride, name);
    }
    outcome->events = service.Events();
    return true;
}

namespace {

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
    AnomalyOutcome outcome;
    Failure failure;
    if (!DetectAnomaly(frame, o.width, o.height, o.stride, o.name, o.frame, &outcome, &failure)) {
        fprintf(stderr, "iqa anomaly: %s\n", failure.reason.c_str());
        return 1;
    }
    for (const std::string& line : outcome.lines) {
        printf("%s\n", line.c_str());
    }
    for (const MCS::RecordingService::Event& e : outcome.events) {
        PrintEvent(e);
    }
    if (outcome.events.empty()) {
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
