// The commands of the iqa host program. Each Add function declares its command, with its
// options and help, on the program's parser; when the command runs, its exit status (0, or 1
// for a failure it reports in one line) goes to *status. Usage errors are the parser's: status 2.
#ifndef IQA_TOOLS_COMMANDS_COMMANDS_H
#define IQA_TOOLS_COMMANDS_COMMANDS_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "common/CameraLayout.h"

namespace iqa_tools {

void AddSampleCommand(CLI::App& app, int* status);
void AddImportCommand(CLI::App& app, int* status);
void AddRunCommand(CLI::App& app, int* status);
void AddReportCommand(CLI::App& app, int* status);
void AddCompareCommand(CLI::App& app, int* status);
void AddInspectCommand(CLI::App& app, int* status);
void AddExtractCommand(CLI::App& app, int* status);
void AddAnomalyCommand(CLI::App& app, int* status);
void AddRecoverCommand(CLI::App& app, int* status);
void AddScanCommand(CLI::App& app, int* status);

// Reads a whole input file; prints "iqa <command>: cannot read PATH: why" when it cannot.
bool ReadInput(const char* command, const std::string& path, std::vector<unsigned char>* bytes);

// Makes DIR the working directory when it holds a camera folder; else prints why and returns
// false.
bool EnterCameraRoot(const char* command, const std::string& dir);

using IQA::kCacheFolder;
using IQA::kCameraFolder;
using IQA::kPhotoSuffix;
using IQA::kThumbnailSuffix;
// What iqa run keeps in the camera root for iqa report: results.json and the thumbnails' copies
// (the run deletes the thumbnails it evaluates).
constexpr const char* kLastRunFolder = "iqa-last-run";

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_COMMANDS_H
