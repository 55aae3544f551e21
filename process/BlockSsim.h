// The block SSIM of two byte planes: every whole 8x8 block's value, in the order the mean adds
// them up (rows of blocks from the top, each from the left). Shared by the SSIM stage and the
// host tools' block map, so that a map's values add up to the stage's score bit for bit.
#ifndef IQA_PROCESS_BLOCK_SSIM_H
#define IQA_PROCESS_BLOCK_SSIM_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace IQA {

constexpr int kSsimBlock = 8;

// Bytes [0, n) of each plane that the block SSIM of width x height planes reads: up to the last
// byte of its last whole block; none when there is no whole block.
inline size_t BlockSsimReach(int width, int height) {
    const int64_t blocksX = width / kSsimBlock, blocksY = height / kSsimBlock;
    if (blocksX < 1 || blocksY < 1) {
        return 0;
    }
    return static_cast<size_t>((blocksY * kSsimBlock - 1) * width + blocksX * kSsimBlock);
}

// Blocks of one band summed per pass.
constexpr int kBandBlocks = 64;

// The sums of the blocks side by side in one band of 8 rows, one array per sum. Every sum is below
// 2^23, so a signed 32-bit integer holds it and converts to double on whole vectors.
struct BandSums {
    int32_t a[kBandBlocks], b[kBandBlocks], aa[kBandBlocks], bb[kBandBlocks], ab[kBandBlocks];
};

// The sums of `blocks` (at most kBandBlocks) blocks side by side in one band of 8 rows.
void SumBand(const unsigned char* p1, const unsigned char* p2, int64_t stride, int blocks,
             BandSums* out);

// Each block's SSIM from its sums into value[0, blocks); returns how many leading blocks have one:
// blocks, or the index of the first whose denominator is exactly 0.
int BandValues(const BandSums& sums, int blocks, double* value);

// Calls visit(blockX, blockY, value) for every whole block of the width x height planes, in
// order. Stops and returns false at a block whose denominator is 0.
template <typename Visit>
bool ForEachBlockSsim(const unsigned char* p1, const unsigned char* p2, int width, int height,
                      Visit visit) {
    const int blocksX = width / kSsimBlock, blocksY = height / kSsimBlock;
    BandSums sums;
    double values[kBandBlocks];
    for (int by = 0; by < blocksY; ++by) {
        for (int bx0 = 0; bx0 < blocksX; bx0 += kBandBlocks) {
            const int blocks = std::min(kBandBlocks, blocksX - bx0);
            const int64_t offset = static_cast<int64_t>(by) * kSsimBlock * width + bx0 * kSsimBlock;
            SumBand(p1 + offset, p2 + offset, width, blocks, &sums);
            const int valued = BandValues(sums, blocks, values);
            for (int i = 0; i < valued; ++i) {
                visit(bx0 + i, by, values[i]);
            }
            if (valued < blocks) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace IQA

#endif  // IQA_PROCESS_BLOCK_SSIM_H
