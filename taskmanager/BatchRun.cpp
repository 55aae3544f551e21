// The batch run over the registered photos and the chain run of one photo, with the checkpoints
// at which a stop request takes effect.
#include "IqaLog.h"
#include "IqaTaskManager.h"
#include "MallocBlock.h"
#include "SafeCopy.h"
#include "TaskManagerConstants.h"

namespace IQA {

namespace {

std::string Join(const std::string& folder, const std::string& name, const char* suffix) {
    return folder + "/" + name + suffix;
}

}  // namespace

void IqaTaskManager::BeginProcess() {
    const std::string cacheFolder = kCacheFolder;
    const std::string cameraFolder = kCameraFolder;
    stopStatus.store(false);
    IqaProc(cacheFolder, cameraFolder);
}

void IqaTaskManager::IqaProc(const std::string& cacheFolder, const std::string& cameraFolder) {
    if (taskList.empty() || stopStatus.load()) {
        return;
    }
    MallocBlock photoPixels(kPixelBufferSize, MallocBlock::Fill::kNone);
    MallocBlock thumbPixels(kPixelBufferSize, MallocBlock::Fill::kNone);
    if (!photoPixels || !thumbPixels) {
        IQA_LOGE(kTagTaskManager, "memory allocation failed");
        return;
    }
    IQA_LOGI(kTagTaskManager, "begin process %lu tasks",
             static_cast<unsigned long>(taskList.size()));
    while (!taskList.empty()) {
        const std::string name = PopTask();
        const std::string backupPath = Join(kBackupFolder, name, kThumbnailSuffix);
        const std::string photoPath = Join(cameraFolder, name, kPhotoSuffix);
        CopyThumbs(Join(cacheFolder, name, kThumbnailSuffix), kBackupFolder, name);
        if (stopStatus.load()) {
            IQA_LOGI(kTagTaskManager, "interrupt current task: %s", name.c_str());
            AddTask(name);
            break;
        }
        IqaImageInfo info{};
        info.jpegName = name;
        info.thumbPath = backupPath;
        info.jpegPath = photoPath;
        info.thumbBuffer = thumbPixels.get();
        info.jpegBuffer = photoPixels.get();
        info.bufferSize = kPixelBufferSize;
        info.thumbDecoderType = DECODER_THUMBNAIL;
        info.jpegDecoderType = DECODER_JPEG;
        const SsimResult result = GetSsim(info);
        RemoveFile(backupPath, kDeleteLabel);
        if (result.ssim == 0.0) {
            continue;
        }
        if (stopStatus.load()) {
            IQA_LOGI(kTagTaskManager, "interrupt current task's upload: %s", name.c_str());
            break;
        }
        if (result.ssim > kHighSimilarity) {
            IQA_LOGI(kTagTaskManager, "img %s with high similarity : ssim %lf", photoPath.c_str(),
                     result.ssim);
        } else {
            IqaReply(name, thumbPixels.get(), result.width, result.height);
            IQA_LOGI(kTagTaskManager, "img %s with low similarity : ssim %lf", photoPath.c_str(),
                     result.ssim);
        }
        IQA_CHECK_COPY(kTagTaskManager,
                       memset_s(photoPixels.get(), kPixelBufferSize, 0, kPixelBufferSize));
        IQA_CHECK_COPY(kTagTaskManager,
                       memset_s(thumbPixels.get(), kPixelBufferSize, 0, kPixelBufferSize));
    }
}

SsimResult IqaTaskManager::GetSsim(IqaImageInfo& info) {
    // The chain's length is read anew after every stage.
    for (size_t stage = 0; stage < processNodes.size(); ++stage) {
        if (stopStatus.load()) {
            IQA_LOGI(kTagTaskManager, "interrupt current task's procss: %s", info.jpegName.c_str());
            AddTask(info.jpegName);
            break;
        }
        if (!processNodes[stage]->ProcessImage(info)) {
            IQA_LOGE(kTagTaskManager, "GetSsim error: %s", info.jpegName.c_str());
            return SsimResult{0.0, 0, 0};
        }
    }
    return SsimResult{info.ssim, info.thumbWidth, info.thumbHeight};
}

}  // namespace IQA
