// Block SSIM. Per block the sums of bytes, squares and cross products are exact integers; the
// deviation sums derived from them in double equal, bit for bit, the two-pass sums of
// (a - mean)^2 and (a - mean)(b - mean), since every intermediate is a multiple of 1/64 that
// double holds exactly. The final expression keeps its written order.
#include "process/BlockSsim.h"

#include "common/KernelClones.h"

namespace IQA {

namespace {

constexpr double kC1 = 6.5025;   // (0.01 * 255)^2
constexpr double kC2 = 58.5225;  // (0.03 * 255)^2

// Sum over the block of (a - meanA)(b - meanB), exactly: sumAB - sumA * sumB / 64.
double DeviationProduct(uint32_t sumAB, uint32_t sumA, uint32_t sumB) {
    return static_cast<double>(sumAB) -
           static_cast<double>(sumA) * static_cast<double>(sumB) * 0.015625;
}

// First every column over the 8 rows, in whole vectors (a product of two bytes fits 16 bits),
// then each block's 8 columns. In this file's namespace: the clones' dispatching symbol would
// otherwise join the library's exported surface, whatever the visibility preset says.
IQA_KERNEL_CLONES void SumBandClones(const unsigned char* p1, const unsigned char* p2,
                                     int64_t stride, int blocks, BlockSums* out) {
    constexpr int kColumns = kBandBlocks * kSsimBlock;
    uint16_t a[kColumns] = {}, b[kColumns] = {};
    uint32_t aa[kColumns] = {}, bb[kColumns] = {}, ab[kColumns] = {};
    const int columns = blocks * kSsimBlock;
    for (int y = 0; y < kSsimBlock; ++y) {
        const unsigned char* r1 = p1 + y * stride;
        const unsigned char* r2 = p2 + y * stride;
        for (int x = 0; x < columns; ++x) {
            const uint16_t va = r1[x], vb = r2[x];
            a[x] = static_cast<uint16_t>(a[x] + va);
            b[x] = static_cast<uint16_t>(b[x] + vb);
            aa[x] += static_cast<uint16_t>(va * va);
            bb[x] += static_cast<uint16_t>(vb * vb);
            ab[x] += static_cast<uint16_t>(va * vb);
        }
    }
    for (int block = 0; block < blocks; ++block) {
        BlockSums s;
        for (int x = block * kSsimBlock; x < (block + 1) * kSsimBlock; ++x) {
            s.a += a[x], s.b += b[x], s.aa += aa[x], s.bb += bb[x], s.ab += ab[x];
        }
        out[block] = s;
    }
}

}  // namespace

void SumBand(const unsigned char* p1, const unsigned char* p2, int64_t stride, int blocks,
             BlockSums* out) {
    SumBandClones(p1, p2, stride, blocks, out);
}

bool BlockValue(const BlockSums& s, double* value) {
    const double muA = s.a * 0.015625;
    const double muB = s.b * 0.015625;
    const double varA = DeviationProduct(s.aa, s.a, s.a) / 63;
    const double varB = DeviationProduct(s.bb, s.b, s.b) / 63;
    const double covAB = DeviationProduct(s.ab, s.a, s.b) / 63;
    const double denominator = (muA * muA + muB * muB + kC1) * (varA + varB + kC2);
    if (denominator == 0.0) {
        return false;
    }
    *value = ((2 * muA * muB + kC1) * (2 * covAB + kC2)) / denominator;
    return true;
}

}  // namespace IQA
