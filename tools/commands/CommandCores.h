// What the iqa program's commands compute, apart from how they print it: shared by the program
// and the Python module, so that both give the same numbers, documents and reasons. Failures
// come back as the one-line reason the program prints after "iqa <command>: ".
#ifndef IQA_TOOLS_COMMANDS_COMMAND_CORES_H
#define IQA_TOOLS_COMMANDS_COMMAND_CORES_H

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "McsRecordingService.h"
#include "tools/commands/PairEvaluation.h"
#include "tools/commands/RunResults.h"
#include "tools/files/CameraFiles.h"
#include "tools/report/Heatmap.h"
#include "upload/DumpJournal.h"

namespace iqa_tools {

// How a command failed: its reason, and whether a file it needed is not there at all.
struct Failure {
    std::string reason;
    bool missing = false;
};

// Reads a whole input file; on failure *failure says "cannot read PATH: why".
bool ReadInputFile(const std::string& path, Bytes* bytes, Failure* failure);

// compare: both files readable, then the pair through the library's stages. rawPhoto: the photo
// is a raw thumbnail file too.
bool ComparePair(const std::string& photo, const std::string& thumbnail, bool rawPhoto,
                 PairEvaluation* evaluation, Failure* failure);
// compare --json. Numbers are exact doubles: the mean of blocks.ssim is ssim bit for bit.
nlohmann::ordered_json CompareDocument(const std::string& photo, const std::string& thumbnail,
                                       const PairEvaluation& e,
                                       const std::vector<BlockSpot>& worst);

// inspect --json of a photo's bytes.
nlohmann::ordered_json InspectDocument(const std::string& path, const Bytes& file,
                                       const TrailerListing& listing);

// run, in the camera root that is the working directory: evaluates every thumbnail of its cache
// folder as the camera host does, keeps what iqa report needs, and gives the result per photo.
// echo: the library's lines to stderr as they come; showProgress: a progress bar on stderr when
// it is a terminal.
bool RunCameraRoot(bool echo, bool showProgress, std::vector<PhotoResult>* results,
                   Failure* failure);

// recover, in the camera root that is the working directory: the library's line per journal.
IQA::Recovery RecoverCameraRoot(std::vector<std::string>* lines);

// anomaly: the detector's outcome lines and the big-data events it sent.
struct AnomalyOutcome {
    std::vector<std::string> lines;  // "operation: text"
    std::vector<MCS::RecordingService::Event> events;
};
bool DetectAnomaly(const Bytes& frame, unsigned width, unsigned height, int stride,
                   const std::string& name, const std::string& frameName, AnomalyOutcome* outcome,
                   Failure* failure);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_COMMAND_CORES_H
