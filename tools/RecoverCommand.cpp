// iqa recover: completes or discards what a crash left of the library's dumps in a camera root.
#include <android/log.h>

#include <cstdio>
#include <memory>

#include "Commands.h"
#include "DumpJournal.h"
#include "LogLines.h"

namespace iqa_tools {

namespace {

void PrintRecoveryLine(const struct __android_logger_data*, const char* message) {
    LogLine line;
    fprintf(stderr, "recover: %s\n", ParseLogLine(message, &line) ? line.text.c_str() : message);
}

}  // namespace

bool RecoverCameraRoot() {
    __android_log_set_logger(PrintRecoveryLine);
    const IQA::Recovery recovery = IQA::RecoverDumps(kCameraFolder);
    __android_log_set_logger(__android_log_stderr_logger);
    return recovery.kept == 0;
}

void AddRecoverCommand(CLI::App& app, int* status) {
    auto dir = std::make_shared<std::string>(".");
    CLI::App* command = app.add_subcommand(
        "recover",
        "Replay the journals that interrupted dumps left in the camera folder under DIR: each "
        "photo then holds exactly its new record, or stays as it was when the dump had not yet "
        "begun to change it. One line per journal; exit status 1 when a journal could not be "
        "replayed now (it is kept, and tried again by the next recovery).");
    command->add_option("DIR", *dir, "camera root (default: the current folder)");
    command->callback([dir, status] {
        *status = EnterCameraRoot("recover", *dir) && RecoverCameraRoot() ? 0 : 1;
    });
}

}  // namespace iqa_tools
