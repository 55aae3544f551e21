// Block SSIM. Per block the sums of bytes, squares and cross products are exact integers; the
// deviation sums derived from them in double equal, bit for bit, the two-pass sums of
// (a - mean)^2 and (a - mean)(b - mean), since every intermediate is a multiple of 1/64 that
// double holds exactly. The final expression keeps its written order.
#include "IqaCompSim.h"

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

BlockSums SumBlock(const unsigned char* p1, const unsigned char* p2, int64_t stride) {
    BlockSums s;
    for (int y = 0; y < kBlock; ++y) {
        const unsigned char* r1 = p1 + y * stride;
        const unsigned char* r2 = p2 + y * stride;
        for (int x = 0; x < kBlock; ++x) {
            const uint32_t a = r1[x], b = r2[x];
            s.a += a;
            s.b += b;
            s.aa += a * a;
            s.bb += b * b;
            s.ab += a * b;
        }
    }
    return s;
}

// Sum over the block of (a - meanA)(b - meanB), exactly: sumAB - sumA * sumB / 64.
double DeviationProduct(uint32_t sumAB, uint32_t sumA, uint32_t sumB) {
    return static_cast<double>(sumAB) -
           static_cast<double>(sumA) * static_cast<double>(sumB) * 0.015625;
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
    for (int by = 0; by < blocksY; ++by) {
        for (int bx = 0; bx < blocksX; ++bx) {
            const int64_t offset = static_cast<int64_t>(by) * kBlock * width + bx * kBlock;
            const BlockSums s = SumBlock(image1 + offset, image2 + offset, width);
            const double muA = s.a * 0.015625;
            const double muB = s.b * 0.015625;
            const double varA = DeviationProduct(s.aa, s.a, s.a) / 63;
            const double varB = DeviationProduct(s.bb, s.b, s.b) / 63;
            const double covAB = DeviationProduct(s.ab, s.a, s.b) / 63;
            const double denominator = (muA * muA + muB * muB + kC1) * (varA + varB + kC2);
            if (denominator == 0.0) {
                IQA_LOGE(kTagCompSim, "get ssim error");
                return 0.0;
            }
            total += ((2 * muA * muB + kC1) * (2 * covAB + kC2)) / denominator;
        }
    }
    return total / static_cast<double>(static_cast<int64_t>(blocksX) * blocksY);
}

}  // namespace IQA
