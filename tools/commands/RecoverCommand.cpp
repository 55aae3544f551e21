// iqa recover: completes or discards what a crash left of the library's dumps in a camera root.
#include <cstdio>
#include <memory>

#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/commands/LibraryLog.h"
#include "tools/commands/LogLines.h"
#include "upload/DumpJournal.h"

namespace iqa_tools {

IQA::Recovery RecoverCameraRoot(std::vector<std::string>* lines) {
    const LibraryLog capture([&](int, const char*, const char* message) {
        LogLine line;
        lines->push_back(ParseLogLine(message, &line) ? line.text : message);
    });
    return IQA::RecoverDumps(kCameraFolder);
}

namespace {

// The journals' lines to stderr; false when a journal had to be kept.
bool Recover() {
    std::vector<std::string> lines;
    const IQA::Recovery recovery = RecoverCameraRoot(&lines);
    for (const std::string& line : lines) {
        fprintf(stderr, "recover: %s\n", line.c_str());
    }
    return recovery.kept == 0;
}

}  // namespace

void AddRecoverCommand(CLI::App& app, int* status) {
    auto dir = std::make_shared<std::string>(".");
    CLI::App* command = app.add_subcommand(
        "recover",
        "Replay the journals that interrupted dumps left in the camera folder under DIR: each "
        "photo then holds exactly its new record, or stays as it was when the dump had not yet "
        "begun to change it. One line per journal; exit status 1 when a journal could not be "
        "replayed now (it is kept, and tried again by the next recovery).");
    command->add_option("DIR", *dir, "camera root (default: the current folder)");
    command->callback(
        [dir, status] { *status = EnterCameraRoot("recover", *dir) && Recover() ? 0 : 1; });
}

}  // namespace iqa_tools
