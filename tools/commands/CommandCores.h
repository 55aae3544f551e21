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
nlohmann::ordered_json InspectDocument(const std::string& path, const TrailerListing& listing);

// scan: one photo of a folder pulled from a phone, judged from its markers and trailer alone.
struct ScannedPhoto {
    std::string file;  // relative to the folder
    TrailerListing listing;
    std::string trailer;   // "whole", "none", "damaged" or "unfinished dump"
    std::string journal;   // an unfinished dump's journal, relative to the folder; else ""
    bool flagged = false;  // holds an Iqa_com record: the phone judged it of low similarity
};
struct FolderScan {
    std::string folder;
    std::vector<ScannedPhoto> photos;   // in the order FindPhotos gives
    std::vector<std::string> problems;  // what could not be read, one line each
};
// Reads every JPEG under dir, writing nothing. False only when dir cannot be read at all.
// showProgress: a progress bar on stderr when it is a terminal.
bool ScanFolder(const std::string& dir, bool showProgress, FolderScan* scan, Failure* failure);
// scan --json: {"folder", "photos": [the inspect document of each, with "trailer", "journal" and
// "flagged"], "problems", "summary": {"photos", "flagged", "damaged", "unfinished"}}.
nlohmann::ordered_json ScanDocument(const FolderScan& scan);
// "N photos: F flagged, D damaged trailers, U unfinished dumps".
std::string ScanSummary(const FolderScan& scan);

// What a flagged photo looks like beside the preview the phone stored in it: the preview of its
// newest Iqa_com record, and the photo decoded cheaply (DCT scaling) and box-reduced to the
// preview's size, compared block by block. An indication from a quarter-size preview, not the
// score the phone computed.
struct FlaggedView {
    std::string error;  // why there is no comparison; empty when there is
    Image preview;
    uint64_t recordAt = 0;
    PairEvaluation comparison;  // thumbnail side: the preview; photo side: the reduced photo
};
FlaggedView ViewFlagged(const std::string& dir, const ScannedPhoto& photo);
// scan -o: the HTML page of a scan, each flagged photo viewed as above. showProgress: a
// progress bar over the flagged photos on stderr when it is a terminal.
std::string ScanReport(const FolderScan& scan, bool showProgress);
// The preview alone, read from the photo's newest Iqa_com record; false with why.
bool StoredPreview(const std::string& dir, const ScannedPhoto& photo, Image* preview,
                   uint64_t* recordAt, std::string* why);

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
