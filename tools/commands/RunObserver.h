// Follows a batch run through the library's log stream: which photo the worker is on, what was
// decoded, the score, the verdict and whether a record was dumped.
#ifndef IQA_TOOLS_COMMANDS_RUN_OBSERVER_H
#define IQA_TOOLS_COMMANDS_RUN_OBSERVER_H

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tools/commands/LogLines.h"
#include "tools/commands/Terminal.h"

namespace iqa_tools {

struct PhotoOutcome {
    int thumbWidth = 0, thumbHeight = 0, photoWidth = 0, photoHeight = 0;
    bool scored = false;
    double ssim = 0.0;
    std::string verdict;  // "high", "low", "no result", "interrupted"
    std::string reason;   // the first error seen for the photo
    bool dumpSaved = false;
    std::string dumpError;
    bool done = false;
};

class RunObserver {
  public:
    // echo: print every library line to stderr as it comes; progress shows photos finished.
    RunObserver(bool echo, Progress* progress) : echo_(echo), progress_bar_(progress) {}

    // The worker takes a batch's names last in, first out.
    void BeginBatch(const std::vector<std::string>& names);
    // Called from the logger, on whichever thread logs.
    void OnLog(int priority, const char* tag, const char* message);
    // Wait until every name of the batch is registered, or done; false after `limit` without
    // any progress.
    bool WaitRegistered(std::chrono::seconds limit);
    bool WaitBatchDone(std::chrono::seconds limit);

    std::map<std::string, PhotoOutcome> Outcomes() const;

  private:
    void OnPhotoLine(const LogLine& line, int priority, PhotoOutcome& photo);
    void Finish(PhotoOutcome& photo);
    bool WaitFor(std::unique_lock<std::mutex>& lock, std::chrono::seconds limit,
                 bool (RunObserver::*condition)() const);
    bool AllRegistered() const { return registered_ >= order_.size(); }
    bool AllDone() const { return finished_ >= order_.size(); }

    const bool echo_;
    Progress* const progress_bar_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> order_;
    size_t current_ = 0;  // index into order_ + 1; 0 before the first photo
    size_t registered_ = 0;
    size_t finished_ = 0;
    size_t progress_ = 0;  // lines seen, to tell a slow run from a stuck one
    size_t total_ = 0;     // photos finished over all batches
    std::map<std::string, PhotoOutcome> outcomes_;
};

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_RUN_OBSERVER_H
