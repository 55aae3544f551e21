// Test access to the task manager's state, and processing nodes with scripted behaviour.
#ifndef IQA_TESTS_MANAGER_PEER_H
#define IQA_TESTS_MANAGER_PEER_H

#include <functional>
#include <future>
#include <memory>
#include <mutex>

#include <gtest/gtest.h>

#include "IqaTaskManager.h"
#include "tests/support/Deadline.h"

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
    static ::testing::AssertionResult WorkerEnds(IqaTaskManager& m) {
        if (m.workerFuture.wait_for(iqa_test::kDeadline) == std::future_status::ready) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "the worker did not end";
    }
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

// Blocks the worker inside a stage until the test opens it (or the deadline passes, so that a
// failed test never leaves the worker, and the manager's destructor with it, waiting).
class Gate {
  public:
    std::shared_ptr<IQA::IqaProcessNode> Node() {
        return std::make_shared<ScriptedNode>([this](IqaImageInfo&) {
            std::call_once(once_, [this] { enter_.set_value(); });
            opened_.wait_for(kDeadline);
            return true;
        });
    }
    ::testing::AssertionResult Entered() {
        if (entered_.wait_for(kDeadline) == std::future_status::ready) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "the batch run did not reach the gate";
    }
    void Open() { open_.set_value(); }

  private:
    std::once_flag once_;
    std::promise<void> enter_, open_;
    std::shared_future<void> entered_ = enter_.get_future().share();
    std::shared_future<void> opened_ = open_.get_future().share();
};

}  // namespace iqa_test

#endif  // IQA_TESTS_MANAGER_PEER_H
