// The subcommands of the iqa host program. Each takes the arguments after its name and returns
// the process exit status.
#ifndef IQA_TOOLS_COMMANDS_H
#define IQA_TOOLS_COMMANDS_H

#include <string>
#include <vector>

namespace iqa_tools {

using Args = std::vector<std::string>;

int SampleCommand(const Args& args);
int RunCommand(const Args& args);
int InspectCommand(const Args& args);
int ExtractCommand(const Args& args);
int AnomalyCommand(const Args& args);
int RecoverCommand(const Args& args);

// Replays the dump journals of the camera folder under the working directory, printing a line
// for each to stderr; false when a journal had to be kept.
bool RecoverCameraRoot();

// True (after printing usage to stdout) when args ask for help.
bool WantsHelp(const Args& args, const char* usage);
// Prints "iqa <command>: message" and the usage to stderr; returns the usage-error status.
int UsageError(const char* command, const std::string& message, const char* usage);

// Reads a whole input file; prints "iqa <command>: cannot read PATH: why" when it cannot.
bool ReadPhoto(const char* command, const std::string& path, std::vector<unsigned char>* bytes);

constexpr const char* kCameraFolder = "storage/emulated/0/DCIM/Camera";
constexpr const char* kCacheFolder = "storage/emulated/0/DCIM/Camera/cache";

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_H
