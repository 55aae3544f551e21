// The batch run over the registered photos and the chain run of one photo, with the checkpoints
// at which a stop request takes effect.
#include <algorithm>
#include <typeinfo>

#include "IqaCompSim.h"
#include "IqaLog.h"
#include "IqaProcessData.h"
#include "IqaTaskManager.h"
#include "MallocBlock.h"
#include "SafeCopy.h"
#include "TaskManagerConstants.h"
#include "WrittenExtent.h"

namespace IQA {

namespace {

std::string Join(const std::string& folder, const std::string& name, const char* suffix) {
    return folder + "/" + name + suffix;
}

// Only the stock stages report what they write; a chain with other stages gets full clears.
bool StockChain(const std::vector<std::shared_ptr<IqaProcessNode>>& nodes) {
    return std::all_of(nodes.begin(), nodes.end(), [](const std::shared_ptr<IqaProcessNode>& n) {
        if (n == nullptr) {
            return false;
        }
        const IqaProcessNode& node = *n;
        return typeid(node) == typeid(IqaProcessData) || typeid(node) == typeid(IqaCompSim);
    });
}

// The run's two buffers, zero from the start (calloc maps them lazily), tracked for the run.
class RunBuffers {
  public:
    explicit RunBuffers(bool track)
        : photo_(MallocBlock::Zeroed(kPixelBufferSize)),
          thumb_(MallocBlock::Zeroed(kPixelBufferSize)),
          tracked_(track && photo_ && thumb_) {
        if (tracked_) {
            WrittenExtent::Track(photo_.get());
            WrittenExtent::Track(thumb_.get());
        }
    }
    ~RunBuffers() {  // forgetting a buffer that is not tracked changes nothing
        WrittenExtent::Forget(photo_.get());
        WrittenExtent::Forget(thumb_.get());
    }
    RunBuffers(const RunBuffers&) = delete;
    RunBuffers& operator=(const RunBuffers&) = delete;

    bool ok() const { return photo_ && thumb_; }
    bool tracked() const { return tracked_; }
    unsigned char* photo() const { return photo_.get(); }
    unsigned char* thumb() const { return thumb_.get(); }

  private:
    MallocBlock photo_;
    MallocBlock thumb_;
    bool tracked_;
};

// One photo's record: the backed-up thumbnail first, the photo second, the run's buffers.
IqaImageInfo Record(const std::string& name, const std::string& backupPath,
                    const std::string& photoPath, const RunBuffers& buffers) {
    IqaImageInfo info{};
    info.jpegName = name;
    info.thumbPath = backupPath;
    info.jpegPath = photoPath;
    info.thumbBuffer = buffers.thumb();
    info.jpegBuffer = buffers.photo();
    info.bufferSize = kPixelBufferSize;
    info.thumbDecoderType = DECODER_THUMBNAIL;
    info.jpegDecoderType = DECODER_JPEG;
    return info;
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
    const RunBuffers buffers(StockChain(processNodes));
    if (!buffers.ok()) {
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
        IqaImageInfo info = Record(name, backupPath, photoPath, buffers);
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
            IqaReply(name, buffers.thumb(), result.width, result.height);
            IQA_LOGI(kTagTaskManager, "img %s with low similarity : ssim %lf", photoPath.c_str(),
                     result.ssim);
        }
        // In the run's tracked buffers the next writer clears what it will not overwrite.
        if (!buffers.tracked()) {
            IQA_CHECK_COPY(kTagTaskManager,
                           memset_s(buffers.photo(), kPixelBufferSize, 0, kPixelBufferSize));
            IQA_CHECK_COPY(kTagTaskManager,
                           memset_s(buffers.thumb(), kPixelBufferSize, 0, kPixelBufferSize));
        }
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
            return SsimResult{};  // no score: no result
        }
    }
    return SsimResult{info.ssim, info.thumbWidth, info.thumbHeight};
}

}  // namespace IQA
