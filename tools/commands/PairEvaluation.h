// One photo and its raw thumbnail through the library's own preparation and SSIM stages, the way
// a batch run evaluates them, with nothing moved, deleted or written.
#ifndef IQA_TOOLS_COMMANDS_PAIR_EVALUATION_H
#define IQA_TOOLS_COMMANDS_PAIR_EVALUATION_H

#include <string>
#include <vector>

#include "tools/files/CameraFiles.h"

namespace iqa_tools {

struct PairEvaluation {
    bool ok = false;        // both decoded, and at least one whole 8x8 block compared
    std::string error;      // else the library's first error line, or why nothing was compared
    Size thumbnail, photo;  // as decoded
    Size compared;          // the size the SSIM stage compared at
    double ssim = 0.0;
    std::string verdict;  // "high" or "low", as the batch run decides
    Image thumbImage;     // the thumbnail, and the photo, as the SSIM stage saw them
    Image photoImage;
    // Every whole 8x8 block of the compared planes, rows of blocks from the top: the values the
    // SSIM is the mean of, in the order it adds them up.
    int blocksX = 0, blocksY = 0;
    std::vector<double> blocks;
};

// rawPhoto: the photo is a raw thumbnail file too (pixels handed over as an array), decoded as
// the camera's thumbnails are.
PairEvaluation EvaluatePair(const std::string& photo, const std::string& thumbnail,
                            bool rawPhoto = false);

// Two images of one size through the SSIM stage alone: the thumbnail side is `thumbnail`, the
// photo side `photo`. Not ok (with why) for sizes that differ or hold no whole 8x8 block.
PairEvaluation EvaluateImages(const Image& thumbnail, const Image& photo);

// The batch run's verdict: above the single-precision 0.9 is high similarity, anything else low.
const char* Verdict(double ssim);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_PAIR_EVALUATION_H
