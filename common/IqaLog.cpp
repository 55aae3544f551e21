// Formats a message and hands it to the Android log with the "[operation:line]:" prefix.
#include "common/IqaLog.h"

#include <cstdarg>
#include <cstdio>

namespace IQA {

namespace {
// __android_log_print keeps at most 1023 characters of a line (its own buffer is 1024 bytes),
// so a longer message would be cut there anyway.
constexpr int kMaxMessage = 1024;
}  // namespace

void LogLine(int priority, const char* tag, const char* operation, int line, const char* format,
             ...) {
    char message[kMaxMessage];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    __android_log_print(priority, tag, "[%s:%d]:%s", operation, line, message);
}

}  // namespace IQA
