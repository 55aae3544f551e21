// The batch run over the registered photos and the chain run of one photo, with the checkpoints
// at which a stop request takes effect.
#include <typeinfo>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "IqaTaskManager.h"
#include "common/CameraLayout.h"
#include "common/IqaLog.h"
#include "common/MallocBlock.h"
#include "common/SafeCopy.h"
#include "process/BlockSsim.h"
#include "process/PairRecord.h"
#include "process/Preparation.h"
#include "process/RunBuffer.h"
#include "process/ThumbnailFile.h"

namespace IQA {

namespace {

// The label of the backup's deletion line once its photo was evaluated.
constexpr const char* kDeleteLabel = "IQA-getssim-end";

using Chain = std::vector<std::shared_ptr<IqaProcessNode>>;

std::string Join(const std::string& folder, const std::string& name, const char* suffix) {
    return folder + "/" + name + suffix;
}

// Exactly the chain the constructor builds: then the run knows what every stage writes and reads.
bool StockChain(const Chain& nodes) {
    const auto is = [&](size_t stage, const std::type_info& type) {
        const IqaProcessNode* node = nodes[stage].get();
        return node != nullptr && typeid(*node) == type;
    };
    return nodes.size() == 2 && is(0, typeid(IqaProcessData)) && is(1, typeid(IqaCompSim));
}

// The run's two buffers, zero from the start (calloc maps them lazily), and what an earlier
// photo may have left in each.
class RunBuffers {
  public:
    RunBuffers()
        : photo_(MallocBlock::Zeroed(kPixelBufferSize)),
          thumb_(MallocBlock::Zeroed(kPixelBufferSize)) {}
    RunBuffers(const RunBuffers&) = delete;
    RunBuffers& operator=(const RunBuffers&) = delete;

    bool ok() const { return photo_ && thumb_; }
    PairBuffers Pair() const { return {thumb_.get(), photo_.get(), kPixelBufferSize}; }
    // A failure is logged as the batch run's own.
    void Clear() {
        IQA_CHECK_COPY_AS(kTagTaskManager, "IqaProc",
                          memset_s(photo_.get(), kPixelBufferSize, 0, kPixelBufferSize));
        IQA_CHECK_COPY_AS(kTagTaskManager, "IqaProc",
                          memset_s(thumb_.get(), kPixelBufferSize, 0, kPixelBufferSize));
    }
    // For the stock chain: the buffers behind the record, and what the SSIM stage reads.
    RunInputs Inputs() { return RunInputs{&thumbState_, &photoState_, BlockSsimReach}; }
    // The thumbnail whole, for the reply (the stock chain reads only what the SSIM reads); null
    // when the rest of it can no longer be read.
    const unsigned char* WholeThumbnail() {
        return FinishThumbnail(&thumbState_) ? thumb_.get() : nullptr;
    }

  private:
    MallocBlock photo_;
    MallocBlock thumb_;
    RunBuffer photoState_{photo_.get(), kPixelBufferSize};
    RunBuffer thumbState_{thumb_.get(), kPixelBufferSize};
};

// The chain over one record, with a stop checkpoint before every stage; `stage(i, node)` runs the
// i-th. The chain's length is read anew after every stage.
template <typename RunStage>
SsimResult RunChain(IqaTaskManager& manager, const Chain& nodes, const std::atomic<bool>& stop,
                    IqaImageInfo& info, RunStage stage) {
    for (size_t i = 0; i < nodes.size(); ++i) {
        if (stop.load()) {
            IQA_LOG_OP(ANDROID_LOG_INFO, kTagTaskManager, "GetSsim",
                       "interrupt current task's procss: %s", info.jpegName.c_str());
            manager.AddTask(info.jpegName);
            break;
        }
        if (!stage(i, *nodes[i])) {
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagTaskManager, "GetSsim", "GetSsim error: %s",
                       info.jpegName.c_str());
            return SsimResult{};  // no score: no result
        }
    }
    return SsimResult{info.ssim, info.thumbWidth, info.thumbHeight};
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
    RunBuffers buffers;
    const bool stock = StockChain(processNodes);
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
        IqaImageInfo info = PairRecord(name, backupPath, photoPath, buffers.Pair());
        // The stock chain is told its buffers and the SSIM stage's demand; any other is run as
        // a host would run it.
        const RunInputs inputs = buffers.Inputs();
        const SsimResult result = stock ? RunChain(*this, processNodes, stopStatus, info,
                                                   [&](size_t stage, IqaProcessNode& node) {
                                                       return stage == 0 ? Prepare(info, inputs)
                                                                         : node.ProcessImage(info);
                                                   })
                                        : GetSsim(info);
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
            const unsigned char* thumbnail = buffers.WholeThumbnail();
            if (thumbnail != nullptr) {
                IqaReply(name, thumbnail, result.width, result.height);
            }
            IQA_LOGI(kTagTaskManager, "img %s with low similarity : ssim %lf", photoPath.c_str(),
                     result.ssim);
        }
        // With the stock chain the next writer clears what it will not overwrite; other stages
        // say nothing of what they wrote.
        if (!stock) {
            buffers.Clear();
        }
    }
}

SsimResult IqaTaskManager::GetSsim(IqaImageInfo& info) {
    return RunChain(*this, processNodes, stopStatus, info,
                    [&](size_t, IqaProcessNode& node) { return node.ProcessImage(info); });
}

}  // namespace IQA
