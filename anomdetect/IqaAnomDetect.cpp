// The black/green screen detector: the two checks and the report of what they find.
#include "IqaAnomDetect.h"

#include <memory>

#include "IqaUpLoad.h"
#include "anomdetect/ScreenSampler.h"
#include "common/IqaLog.h"

namespace IQA {

namespace {

constexpr unsigned char kGreenChroma = 0;
constexpr unsigned char kBlackChroma = 128;
constexpr unsigned char kGreenScreen = 0;
constexpr unsigned char kBlackScreen = 1;

void Report(const std::string& name, unsigned char anomType) {
    auto upload = std::make_shared<IqaUpLoad>();
    upload->UpLoadBigData(name, anomType);
}

}  // namespace

IqaAnomDetect::IqaAnomDetect() = default;
IqaAnomDetect::~IqaAnomDetect() = default;

void IqaAnomDetect::AnomDetect(const unsigned char* buffer, unsigned int width, unsigned int height,
                               int stride, const std::string& name) {
    if (CheckGreenScreen(buffer, width, height, stride)) {
        IQA_LOGE(kTagAnomDetect, "with abnormal green screen!");
        Report(name, kGreenScreen);
        return;
    }
    if (CheckBlackScreen(buffer, width, height, stride)) {
        IQA_LOGE(kTagAnomDetect, "with abnormal black screen!");
        Report(name, kBlackScreen);
        return;
    }
    IQA_LOGI(kTagAnomDetect, "without anom");
}

bool IqaAnomDetect::CheckGreenScreen(const unsigned char* buffer, unsigned int width,
                                     unsigned int height, int stride) {
    return SampleScreen(buffer, width, height, stride, kGreenChroma, __func__);
}

bool IqaAnomDetect::CheckBlackScreen(const unsigned char* buffer, unsigned int width,
                                     unsigned int height, int stride) {
    return SampleScreen(buffer, width, height, stride, kBlackChroma, __func__);
}

}  // namespace IQA
