// The SSIM stage: the mean of the block SSIM over every whole 8x8 block of the two planes.
#include "IqaCompSim.h"

#include <cstdint>

#include "common/IqaLog.h"
#include "process/BlockSsim.h"

namespace IQA {

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
    const int blocksX = width / kSsimBlock;
    const int blocksY = height / kSsimBlock;
    if (image1 == nullptr || image2 == nullptr || blocksX < 1 || blocksY < 1) {
        return 0.0;
    }
    double total = 0.0;
    if (!ForEachBlockSsim(image1, image2, width, height,
                          [&](int, int, double value) { total += value; })) {
        IQA_LOGE(kTagCompSim, "get ssim error");
        return 0.0;
    }
    return total / static_cast<double>(static_cast<int64_t>(blocksX) * blocksY);
}

}  // namespace IQA
