// The manager's life cycle, its request queue and the worker thread that works it off.
#include "IqaTaskManager.h"

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "common/CameraLayout.h"
#include "common/IqaLog.h"
#include "upload/DumpJournal.h"

namespace IQA {

namespace {
// An idle worker waits this long at a time on the steady clock, then simply waits again.
constexpr std::chrono::seconds kIdleWait{300};
}  // namespace

IqaTaskManager::IqaTaskManager() : stopStatus(false), exitFlag(false), taskCount(0) {
    // Hosts compile against the header, so the specified members keep their declared order.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    static_assert(
        offsetof(IqaTaskManager, taskList) < offsetof(IqaTaskManager, processNodes) &&
            offsetof(IqaTaskManager, processNodes) < offsetof(IqaTaskManager, queueMutex) &&
            offsetof(IqaTaskManager, queueMutex) < offsetof(IqaTaskManager, workerFuture) &&
            offsetof(IqaTaskManager, workerFuture) < offsetof(IqaTaskManager, stopStatus) &&
            offsetof(IqaTaskManager, stopStatus) < offsetof(IqaTaskManager, queueCondition) &&
            offsetof(IqaTaskManager, queueCondition) < offsetof(IqaTaskManager, requestQueue) &&
            offsetof(IqaTaskManager, requestQueue) < offsetof(IqaTaskManager, exitFlag) &&
            offsetof(IqaTaskManager, exitFlag) < offsetof(IqaTaskManager, taskCount),
        "member order");
#pragma GCC diagnostic pop
    IQA_LOGI(kTagTaskManager, "begin IqaTaskManager");
    processNodes.push_back(std::make_shared<IqaProcessData>());
    processNodes.push_back(std::make_shared<IqaCompSim>());
}

IqaTaskManager::~IqaTaskManager() {
    IQA_LOGI(kTagTaskManager, "end IqaTaskManager");
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        exitFlag = true;
    }
    queueCondition.notify_one();
    std::lock_guard<std::mutex> start(startMutex);
    if (workerFuture.valid()) {
        workerFuture.wait();
    }
}

void IqaTaskManager::AddIqaProcessNode(std::shared_ptr<IqaProcessNode> node) {
    processNodes.push_back(std::move(node));
}

void IqaTaskManager::AddRequest(const Request& request) {
    if (taskCount.load() == 0 && request.type != REQUEST_REGISTER_TASK && !stopStatus.load()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        requestQueue.push_back(request);
    }
    if (request.type == REQUEST_REGISTER_TASK) {
        StartWorkerIfEnded();
    } else if (request.type == REQUEST_STOP) {
        stopStatus.store(request.stopStatus);
    }
    queueCondition.notify_one();
}

void IqaTaskManager::StartWorkerIfEnded() {
    std::lock_guard<std::mutex> start(startMutex);
    if (workerFuture.valid() &&
        workerFuture.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        exitFlag = false;
    }
    // If the thread cannot start, the exception leaves workerFuture as it was.
    workerFuture = std::async(std::launch::async, &IqaTaskManager::ProcessRequests, this);
}

void IqaTaskManager::SetStopStatus(bool value) {
    stopStatus.store(value);
}

void IqaTaskManager::ProcessRequests() {
    // A photo torn by a crash during an earlier process's dump is completed before anything else.
    RecoverDumps(kCameraFolder);
    for (;;) {
        Request request{};
        {
            std::unique_lock<std::mutex> lock(queueMutex);
            queueCondition.wait_for(lock, kIdleWait,
                                    [this] { return !requestQueue.empty() || exitFlag; });
            if (exitFlag) {
                ClearQueueLocked();
                SetTaskList({});
                return;
            }
            if (requestQueue.empty()) {
                continue;  // idle timeout: wait again
            }
            request = requestQueue.front();
            requestQueue.pop_front();
        }
        switch (request.type) {
            case REQUEST_REGISTER_TASK:
                RegisterTask(request.taskName);
                break;
            case REQUEST_BEGIN_PROCESS:
                BeginProcess();
                break;
            case REQUEST_STOP: {
                std::lock_guard<std::mutex> lock(queueMutex);
                ClearQueueLocked();
                break;
            }
            default:
                IQA_LOGE(kTagTaskManager, "Invalid request or stop");
                return;
        }
    }
}

void IqaTaskManager::ClearQueue() {
    std::lock_guard<std::mutex> lock(queueMutex);
    ClearQueueLocked();
}

void IqaTaskManager::ClearQueueLocked() {
    while (!requestQueue.empty()) {
        requestQueue.pop_front();
    }
}

}  // namespace IQA
