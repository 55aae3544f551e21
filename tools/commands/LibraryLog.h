// The library's log lines, sent to a function of the caller's for as long as a guard lives.
#ifndef IQA_TOOLS_COMMANDS_LIBRARY_LOG_H
#define IQA_TOOLS_COMMANDS_LIBRARY_LOG_H

#include <functional>
#include <mutex>

namespace iqa_tools {

// Installs `sink` as the Android logger and puts the standard (stderr) logger back on every
// path out of the guard's scope. The logger is the process's: a second guard, on any thread,
// waits until the first is gone. `sink` runs on whichever thread logs.
class LibraryLog {
  public:
    using Sink = std::function<void(int priority, const char* tag, const char* message)>;
    explicit LibraryLog(Sink sink);
    ~LibraryLog();
    LibraryLog(const LibraryLog&) = delete;
    LibraryLog& operator=(const LibraryLog&) = delete;

  private:
    std::unique_lock<std::mutex> hold_;
    Sink sink_;
};

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_LIBRARY_LOG_H
