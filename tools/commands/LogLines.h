// Splitting the library's "[operation:line]:message" log lines.
#ifndef IQA_TOOLS_COMMANDS_LOG_LINES_H
#define IQA_TOOLS_COMMANDS_LOG_LINES_H

#include <string>

namespace iqa_tools {

struct LogLine {
    std::string operation;
    int line = 0;
    std::string text;
};

// False when message does not start with the "[operation:line]:" prefix.
bool ParseLogLine(const std::string& message, LogLine* parsed);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_COMMANDS_LOG_LINES_H
