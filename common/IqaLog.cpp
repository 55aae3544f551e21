// Formats a message and hands it to the Android log with the "[operation:line]:" prefix.
#include "IqaLog.h"

#include <cstdarg>
#include <cstdio>

namespace IQA {

namespace {
// The Android log keeps at most about 4 KiB of a message; a resolved path is at most 4096.
constexpr int kMaxMessage = 4096 + 256;
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
