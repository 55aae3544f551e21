// Test access to the task manager's state, and processing nodes with scripted behaviour.
#ifndef IQA_TESTS_MANAGER_PEER_H
#define IQA_TESTS_MANAGER_PEER_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "IqaTaskManager.h"

namespace IQA {

struct IqaTaskManagerTestPeer {
    // Read only while the worker is idle, ended or blocked in a test node.
    static const std::vector<std::string>& Tasks(const IqaTaskManager& m) { return m.taskList; }
    static std::vector<std::shared_ptr<IqaProcessNode>>& Chain(IqaTaskManager& m) {
        return m.processNodes;
    }
    static size_t Queued(IqaTaskManager& m) {
        std::lock_guard<std::mutex> lock(m.queueMutex);
        return m.requestQueue.size();
    }
    static bool Stop(const IqaTaskManager& m) { return m.stopStatus.load(); }
    static bool WorkerStarted(const IqaTaskManager& m) { return m.workerFuture.valid(); }
    static void WaitWorkerEnded(IqaTaskManager& m) { m.workerFuture.wait(); }
};

}  // namespace IQA

namespace iqa_test {

using Peer = IQA::IqaTaskManagerTestPeer;

// A stage that runs a scripted action.
class ScriptedNode : public IQA::IqaProcessNode {
  public:
    explicit ScriptedNode(std::function<bool(IqaImageInfo&)> action) : action_(std::move(action)) {}
    bool ProcessImage(IqaImageInfo& info) override { return action_(info); }

  private:
    std::function<bool(IqaImageInfo&)> action_;
};

// Sets a fixed score and compared size, and paints the thumbnail buffer so a reply has pixels.
inline std::shared_ptr<IQA::IqaProcessNode> ScoreNode(double ssim, int width = 16,
                                                      int height = 16) {
    return std::make_shared<ScriptedNode>([=](IqaImageInfo& info) {
        for (int i = 0; i < width * height * 3; ++i) {
            info.thumbBuffer[i] = static_cast<unsigned char>(i * 7);
        }
        info.thumbWidth = width;
        info.thumbHeight = height;
        info.ssim = ssim;
        return true;
    });
}

// Blocks the worker inside a stage until the test opens it.
class Gate {
  public:
    std::shared_ptr<IQA::IqaProcessNode> Node() {
        return std::make_shared<ScriptedNode>([this](IqaImageInfo&) {
            std::unique_lock<std::mutex> lock(mutex_);
            entered_ = true;
            changed_.notify_all();
            changed_.wait(lock, [this] { return open_; });
            return true;
        });
    }
    void WaitEntered() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return entered_; });
    }
    void Open() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool entered_ = false;
    bool open_ = false;
};

}  // namespace iqa_test

#endif  // IQA_TESTS_MANAGER_PEER_H
