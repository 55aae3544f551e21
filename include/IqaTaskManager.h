// The host's entry point: a request queue worked off by one worker thread, the registry of
// photos to evaluate, and the batch run that compares each photo with its thumbnail.
#ifndef IQA_TASK_MANAGER_H
#define IQA_TASK_MANAGER_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "IqaExport.h"
#include "IqaProcessNode.h"

enum RequestType : int32_t {
    REQUEST_REGISTER_TASK = 0,  // register taskName; starts the worker if none runs
    REQUEST_BEGIN_PROCESS = 1,  // run the batch over every registered photo
    REQUEST_STOP = 2,           // stop status := stopStatus now; queued requests are discarded
};
static_assert(sizeof(RequestType) == 4, "stored as a 32-bit integer");

struct Request {
    RequestType type;
    std::string taskName;  // photo base name, for REQUEST_REGISTER_TASK
    bool stopStatus;       // for REQUEST_STOP
};

// Files' basic existence test: true when stat succeeds (a file or a folder alike).
IQA_EXPORT bool IsFileExists(const std::string& path);
// Deletes path and logs the outcome, with label in the line.
IQA_EXPORT void RemoveFile(const std::string& path, const std::string& label);

namespace IQA {

// SSIM of one photo and the size at which it was compared; ssim 0.0 means no result.
struct SsimResult {
    double ssim;
    int width;
    int height;
};

class IQA_EXPORT IqaTaskManager {
  public:
    IqaTaskManager();
    // Ends the worker: an idle one at once, one inside a batch run when the run returns.
    ~IqaTaskManager();
    IqaTaskManager(const IqaTaskManager&) = delete;
    IqaTaskManager& operator=(const IqaTaskManager&) = delete;

    // Appends a stage to the chain. Not while a batch run may be under way.
    void AddIqaProcessNode(std::shared_ptr<IqaProcessNode> node);
    // Queues a request (any thread). While no name is registered and the stop status is false,
    // everything but a registration is dropped. Thread-start and allocation failures throw.
    void AddRequest(const Request& request);
    // Asks a batch run under way to stop at its next checkpoint.
    void SetStopStatus(bool value);

    // The worker's body; runs on the worker thread.
    void ProcessRequests();
    // Discards every queued request; takes the queue's lock itself.
    void ClearQueue();
    void RegisterTask(const std::string& name);
    void AddTask(const std::string& name);
    void BeginProcess();
    void IqaProc(const std::string& cacheFolder, const std::string& cameraFolder);
    SsimResult GetSsim(IqaImageInfo& info);
    void IqaReply(const std::string& name, const unsigned char* pixels, int width, int height);
    void CopyThumbs(const std::string& thumbPath, const std::string& destFolder,
                    const std::string& name);

  private:
    friend struct IqaTaskManagerTestPeer;

    IQA_HIDDEN void ClearQueueLocked();
    IQA_HIDDEN void StartWorkerIfEnded();
    IQA_HIDDEN void SetTaskList(std::vector<std::string> names);
    IQA_HIDDEN void PushTask(const std::string& name);
    IQA_HIDDEN std::string PopTask();

    std::vector<std::string> taskList;
    std::vector<std::shared_ptr<IqaProcessNode>> processNodes;
    std::mutex queueMutex;
    std::future<void> workerFuture;
    std::atomic<bool> stopStatus;
    std::condition_variable queueCondition;
    std::deque<Request> requestQueue;
    bool exitFlag;
    // Behind the members above, which keep their order: the number of names in taskList for
    // the host's drop rule, and the lock that serialises worker start-up.
    std::atomic<size_t> taskCount;
    std::mutex startMutex;
};

}  // namespace IQA

#endif  // IQA_TASK_MANAGER_H
