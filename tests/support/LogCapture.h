// Captures the library's Android log lines for assertions on exact texts and priorities.
#ifndef IQA_TESTS_LOG_CAPTURE_H
#define IQA_TESTS_LOG_CAPTURE_H

#include <functional>
#include <string>
#include <vector>

#include <android/log.h>
#include <gtest/gtest.h>

namespace iqa_test {

struct LogEntry {
    int priority;
    std::string tag;
    std::string message;
};

// Installs a capturing logger for its lifetime; entries from any thread are kept in order.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogEntry> Entries() const;
    // Messages with their "[operation:line]:" prefix replaced by "[operation]:", so that tests
    // do not depend on source lines.
    std::vector<std::string> Lines() const;
    bool Contains(const std::string& line) const { return Count(line) > 0; }
    size_t Count(const std::string& line) const {
        return CountMatches([&](const std::string& l) { return l == line; });
    }
    void Clear();

    // Blocks until `line` (in Lines() form) has been logged `count` times; fails naming the line
    // if that does not happen before the deadline, which only a hung worker explains.
    ::testing::AssertionResult WaitFor(const std::string& line, size_t count = 1) const;
    // The same for lines (in Lines() form) that `match` accepts; `what` names them.
    ::testing::AssertionResult WaitForMatches(const std::function<bool(const std::string&)>& match,
                                              size_t count, const std::string& what) const;
    size_t CountMatches(const std::function<bool(const std::string&)>& match) const;
    // Runs `hook` on the logging thread for every line (in Lines() form) from now on.
    void OnLine(std::function<void(const std::string&)> hook);
};

// "[op:123]:text" -> "[op]:text".
std::string StripLine(const std::string& message);

}  // namespace iqa_test

#endif  // IQA_TESTS_LOG_CAPTURE_H
