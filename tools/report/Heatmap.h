// Where a photo disagrees with its thumbnail: the SSIM of every 8x8 block drawn over the photo.
//
// The SSIM stage reads each image as a plane of width bytes by height rows, the first
// width x height bytes of its RGB buffer: the top third of the picture, three bytes a pixel. A
// block of the plane therefore covers pixels in three short runs (one per third of the picture's
// width) on three or four neighbouring rows; the map colours those pixels with the block's value
// and leaves the pixels no block reads grey.
#ifndef IQA_TOOLS_REPORT_HEATMAP_H
#define IQA_TOOLS_REPORT_HEATMAP_H

#include <vector>

#include "tools/commands/PairEvaluation.h"

namespace iqa_tools {

// Pixels x0 <= x < x1, y0 <= y < y1 of the picture at the compared size.
struct PixelRect {
    int x0, y0, x1, y1;
};

struct BlockSpot {
    int blockX, blockY;
    double ssim;
    std::vector<PixelRect> pixels;  // the runs of pixels the block's bytes come from
};

// The n blocks of lowest SSIM, lowest first (the earlier block first among equals).
std::vector<BlockSpot> WorstBlocks(const PairEvaluation& e, int n);

// The picture (the photo as compared, dimmed where no block reads it) with every compared pixel
// coloured by its block's SSIM on a perceptually ordered scale (dark violet 0 to yellow 1), the
// given blocks outlined, and a legend bar below. Small pictures are enlarged by a whole factor.
Image RenderHeatmap(const PairEvaluation& e, const std::vector<BlockSpot>& outlined);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_REPORT_HEATMAP_H
