// What iqa run found per photo, and its machine-readable forms (JSON, CSV). The JSON schema is
// in the README; iqa report reads it back from the camera root's last-run folder.
#ifndef IQA_TOOLS_COMMANDS_RUN_RESULTS_H
#define IQA_TOOLS_COMMANDS_RUN_RESULTS_H

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/commands/PairEvaluation.h"

namespace iqa_tools {

struct PhotoResult {
    std::string name;
    std::string verdict;  // "high", "low", "no result" or "interrupted"
    std::string problem;  // why there is no result: the library's first error for the photo
    bool scored = false;  // ssim holds the SSIM stage's result
    double ssim = 0.0;
    Size thumbnail, photo, compared;  // 0 x 0 when unknown
    std::string record;               // "inserted", "not inserted" (a low verdict), or "none"
    uint64_t recordBytes = 0;         // how much the photo grew
    std::string recordProblem;        // why a low verdict's record is not in the photo
};

// The SSIM as the library logs it ("-" without one), and what happened to the photo's record
// ("inserted (+N bytes)", "not inserted" or "-").
std::string SsimText(const PhotoResult& p);
std::string RecordText(const PhotoResult& p);

nlohmann::ordered_json ToJson(const std::string& cameraRoot,
                              const std::vector<PhotoResult>& photos);
// False when the document is not one ToJson wrote.
bool FromJson(const nlohmann::ordered_json& document, std::vector<PhotoResult>* photos);
std::string ToCsv(const std::vector<PhotoResult>& photos);
// The console table: photo, compared size, SSIM, verdict, record, and why there is no result or
// no record.
std::string ToTable(const std::vector<PhotoResult>& photos);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_RUN_RESULTS_H
