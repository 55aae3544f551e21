// The prefix every library log line starts with.
#include "tools/commands/LogLines.h"

#include <cstdlib>

namespace iqa_tools {

bool ParseLogLine(const std::string& message, LogLine* parsed) {
    const size_t close = message.find("]:");
    if (message.empty() || message[0] != '[' || close == std::string::npos) {
        return false;
    }
    const size_t colon = message.rfind(':', close);
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    parsed->operation = message.substr(1, colon - 1);
    parsed->line = std::atoi(message.c_str() + colon + 1);
    parsed->text = message.substr(close + 2);
    return true;
}

}  // namespace iqa_tools
