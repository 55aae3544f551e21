// iqa recover: completes or discards what a crash left of the library's dumps in a camera root.
#include <android/log.h>
#include <unistd.h>

#include <cstdio>

#include "Commands.h"
#include "DumpJournal.h"
#include "LogLines.h"

namespace iqa_tools {

namespace {

constexpr const char* kUsage =
    "usage: iqa recover [DIR]\n"
    "\n"
    "Replays the journals that interrupted dumps left in the camera folder under DIR (default:\n"
    "the current folder): each photo then holds exactly its new record, or stays as it was when\n"
    "the dump had not yet begun to change it. One line per journal; exit status 1 when a journal\n"
    "could not be replayed now (it is kept, and tried again by the next recovery).\n";

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

int RecoverCommand(const Args& args) {
    if (WantsHelp(args, kUsage)) {
        return 0;
    }
    if (args.size() > 1) {
        return UsageError("recover", "expected at most one camera root", kUsage);
    }
    const std::string dir = args.empty() ? "." : args[0];
    if (chdir(dir.c_str()) != 0 || access(kCameraFolder, F_OK) != 0) {
        fprintf(stderr, "iqa recover: %s has no camera folder %s\n", dir.c_str(), kCameraFolder);
        return 1;
    }
    return RecoverCameraRoot() ? 0 : 1;
}

}  // namespace iqa_tools
