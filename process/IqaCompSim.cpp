// Block SSIM. Per block the sums of bytes, squares and cross products are exact integers; the
// deviation sums derived from them in double equal, bit for bit, the two-pass sums of
// (a - mean)^2 and (a - mean)(b - mean), since every intermediate is a multiple of 1/64 that
// double holds exactly. The final expression keeps its written order.
#include "IqaCompSim.h"

#include <algorithm>
#include <cstdint>

#include "IqaLog.h"

namespace IQA {

namespace {

constexpr int kBlock = 8;
constexpr double kC1 = 6.5025;   // (0.01 * 255)^2
constexpr double kC2 = 58.5225;  // (0.03 * 255)^2

struct BlockSums {
    uint32_t a = 0, b = 0, aa = 0, bb = 0, ab = 0;
};

// Block columns of one band summed per pass: the column sums stay in L1.
constexpr int kBandBlocks = 64;

#if defined(__x86_64__) && !defined(__ANDROID__)
#define IQA_BAND_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define IQA_BAND_KERNEL
#endif

// The sums of `blocks` blocks side by side in one band of 8 rows (row length `stride`): first
// every column over the 8 rows, in whole vectors (a product of two bytes fits 16 bits), then
// each block's 8 columns.
IQA_BAND_KERNEL void SumBand(const unsigned char* p1, const unsigned char* p2, int64_t stride,
                             int blocks, BlockSums* out) {
    constexpr int kColumns = kBandBlocks * kBlock;
    uint16_t a[kColumns] = {}, b[kColumns] = {};
    uint32_t aa[kColumns] = {}, bb[kColumns] = {}, ab[kColumns] = {};
    const int columns = blocks * kBlock;
    for (int y = 0; y < kBlock; ++y) {
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
        for (int x = block * kBlock; x < (block + 1) * kBlock; ++x) {
            s.a += a[x], s.b += b[x], s.aa += aa[x], s.bb += bb[x], s.ab += ab[x];
        }
        out[block] = s;
    }
}

// Sum over the block of (a - meanA)(b - meanB), exactly: sumAB - sumA * sumB / 64.
double DeviationProduct(uint32_t sumAB, uint32_t sumA, uint32_t sumB) {
    return static_cast<double>(sumAB) -
           static_cast<double>(sumA) * static_cast<double>(sumB) * 0.015625;
}

// One block's SSIM from its sums, in the written order; false when its denominator is 0.
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

}  // namespace

IqaCompSim::IqaCompSim() = default;
IqaCompSim::~IqaCompSim() = default;

bool IqaCompSim::ProcessImage(IqaImageInfo& info) {
    IQA_LOGI(kTagCompSim, "begin CalculateRgbSsim");
    info.ssim =
        CalculateRgbSsim(info.thumbBuffer, info.jpegBuffer, info.thumbWidth, info.thumbHeight);
    IQA_LOGI(kTagCompSim, "ssim result: %lf", info.ssim);
    return info.ssim != 0.0;
}

double IqaCompSim::CalculateRgbSsim(const unsigned char* image1, const unsigned char* image2,
                                    int width, int height) {
    const int blocksX = width / kBlock;
    const int blocksY = height / kBlock;
    if (image1 == nullptr || image2 == nullptr || blocksX < 1 || blocksY < 1) {
        return 0.0;
    }
    double total = 0.0;
    BlockSums band[kBandBlocks];
    for (int by = 0; by < blocksY; ++by) {
        for (int bx0 = 0; bx0 < blocksX; bx0 += kBandBlocks) {
            const int blocks = std::min(kBandBlocks, blocksX - bx0);
            const int64_t offset = static_cast<int64_t>(by) * kBlock * width + bx0 * kBlock;
            SumBand(image1 + offset, image2 + offset, width, blocks, band);
            for (int i = 0; i < blocks; ++i) {
                double value = 0.0;
                if (!BlockValue(band[i], &value)) {
                    IQA_LOGE(kTagCompSim, "get ssim error");
                    return 0.0;
                }
                total += value;
            }
        }
    }
    return total / static_cast<double>(static_cast<int64_t>(blocksX) * blocksY);
}

}  // namespace IQA
