// The reply to a photo of low similarity: a quarter-size NV12 copy of its thumbnail, dumped as
// a custom-buffer record into the photo's own JPEG file.
#include <climits>

#include "IqaProcessData.h"
#include "IqaTaskManager.h"
#include "IqaUpLoad.h"
#include "common/CameraLayout.h"
#include "common/IqaLog.h"
#include "common/MallocBlock.h"
#include "common/SafeCopy.h"
#include "process/BoxReduce.h"
#include "process/Nv12.h"

namespace IQA {

namespace {

constexpr int kReduction = 4;
constexpr int32_t kFormatNv12 = 1;

void Describe(ImageDumpExpand* descriptor, int width, int height, int64_t size) {
    descriptor->width = width;
    descriptor->height = height;
    descriptor->stride = width;
    descriptor->size = static_cast<int32_t>(size);
    descriptor->format = kFormatNv12;
    const char algoName[sizeof(descriptor->algoname)] = "Iqa_comparessim";
    if (strncpy_s(descriptor->algoname, sizeof(descriptor->algoname), algoName,
                  sizeof(descriptor->algoname) - 1) != 0) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagTaskManager, "IqaReply", "%s failed",
                   "strncpy_s(imageDumpExpand->algoname, sizeof(imageDumpExpand->algoname), "
                   "algoName, sizeof(imageDumpExpand->algoname) - 1)");
    }
    descriptor->algoname[sizeof(descriptor->algoname) - 1] = '\0';
}

}  // namespace

void IqaTaskManager::IqaReply(const std::string& name, const unsigned char* pixels, int width,
                              int height) {
    const std::string photoPath = std::string(kCameraFolder) + "/" + name + kPhotoSuffix;
    const int reducedWidth = width / kReduction;
    const int reducedHeight = height / kReduction;
    const int64_t nv12Bytes = Nv12Size(reducedWidth, reducedHeight);
    if (pixels == nullptr || reducedWidth < 1 || reducedHeight < 1 || nv12Bytes > INT32_MAX) {
        IQA_LOGE(kTagTaskManager, "no image to dump for %s: reduced size %d x %d", name.c_str(),
                 reducedWidth, reducedHeight);
        return;
    }
    const size_t rgbBytes = static_cast<size_t>(reducedWidth) * reducedHeight * 3;
    MallocBlock rgb(rgbBytes);
    MallocBlock nv12(static_cast<size_t>(nv12Bytes));
    MallocBlock descriptorBlock(sizeof(ImageDumpExpand));
    if (!rgb || !nv12 || !descriptorBlock) {
        IQA_LOGE(kTagTaskManager, "memory allocation failed");
        return;
    }
    for (const MallocBlock* block : {&rgb, &nv12, &descriptorBlock}) {
        IQA_CHECK_COPY(kTagTaskManager, memset_s(block->get(), block->size(), 0, block->size()));
    }
    auto* descriptor = reinterpret_cast<ImageDumpExpand*>(descriptorBlock.get());
    Describe(descriptor, reducedWidth, reducedHeight, nv12Bytes);

    auto processData = std::make_shared<IqaProcessData>();
    // The source's height is known here, so the reduction never reads past the thumbnail.
    BoxReduce(pixels, width, height, rgb.get(), reducedWidth, reducedHeight);
    processData->ConvertRGBToNV12(rgb.get(), reducedWidth, reducedHeight, nv12.get());
    auto upload = std::make_shared<IqaUpLoad>();
    upload->SaveCustomBuffer(photoPath, nv12.get(), descriptor);
}

}  // namespace IQA
