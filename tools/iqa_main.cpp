// iqa: host programs that drive the library the way the camera host does, and let a QA engineer
// see what it wrote.
#include <csignal>
#include <cstdio>
#include <cstring>

#include "CameraFiles.h"
#include "Commands.h"

namespace {

constexpr const char* kUsage =
    "usage: iqa <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  sample DIR                      write a sample camera root into DIR\n"
    "  run [--log] [DIR]               evaluate every thumbnail's photo under DIR (default .)\n"
    "  inspect PHOTO                   list the records in a photo's trailer\n"
    "  extract PHOTO OUT               save the preview of the newest Iqa_com record (.jpg/.ppm)\n"
    "  anomaly FRAME W H STRIDE NAME   black/green screen check of a raw YUV 4:2:0 frame\n"
    "  recover [DIR]                   complete the dumps a crash interrupted under DIR\n"
    "\n"
    "'iqa <command> --help' describes a command.\n";

struct Command {
    const char* name;
    int (*run)(const iqa_tools::Args&);
};

constexpr Command kCommands[] = {
    {"sample", iqa_tools::SampleCommand},   {"run", iqa_tools::RunCommand},
    {"inspect", iqa_tools::InspectCommand}, {"extract", iqa_tools::ExtractCommand},
    {"anomaly", iqa_tools::AnomalyCommand}, {"recover", iqa_tools::RecoverCommand}};

}  // namespace

namespace iqa_tools {

bool WantsHelp(const Args& args, const char* usage) {
    for (const std::string& a : args) {
        if (a == "--help" || a == "-h") {
            fputs(usage, stdout);
            return true;
        }
    }
    return false;
}

int UsageError(const char* command, const std::string& message, const char* usage) {
    fprintf(stderr, "iqa %s: %s\n\n%s", command, message.c_str(), usage);
    return 2;
}

bool ReadPhoto(const char* command, const std::string& path, std::vector<unsigned char>* bytes) {
    std::string why;
    if (ReadWholeFile(path, bytes, &why)) {
        return true;
    }
    fprintf(stderr, "iqa %s: cannot read %s: %s\n", command, path.c_str(), why.c_str());
    return false;
}

}  // namespace iqa_tools

int main(int argc, char** argv) {
    // A full file must show as a failed write with its message, not end the program.
    signal(SIGXFSZ, SIG_IGN);
    if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
        fputs(kUsage, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    for (const Command& command : kCommands) {
        if (strcmp(argv[1], command.name) == 0) {
            return command.run(iqa_tools::Args(argv + 2, argv + argc));
        }
    }
    fprintf(stderr, "iqa: unknown command '%s'\n\n%s", argv[1], kUsage);
    return 2;
}
