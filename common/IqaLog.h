// The one place that builds a log line: tag, priority, "[operation:line]:" prefix, message.
#ifndef IQA_COMMON_LOG_H
#define IQA_COMMON_LOG_H

#include <android/log.h>

namespace IQA {

// Component tags.
constexpr const char* kTagTaskManager = "IqaDebug-TaskManager";
constexpr const char* kTagProcessData = "IqaDebug-ProcessData";
constexpr const char* kTagCompSim = "IqaDebug-CompSim";
constexpr const char* kTagAnomDetect = "IqaDebug-AnomDetect";
constexpr const char* kTagUpLoad = "IqaDebug-UpLoad";
constexpr const char* kTagUtils = "IqaDebug-Utils";

// Writes "[operation:line]:" followed by the formatted message to the Android log.
void LogLine(int priority, const char* tag, const char* operation, int line, const char* format,
             ...) __attribute__((format(printf, 5, 6)));

}  // namespace IQA

// The operation name is the enclosing function's own name unless a caller that works on
// behalf of another operation names it explicitly.
#define IQA_LOG_OP(priority, tag, operation, ...) \
    ::IQA::LogLine(priority, tag, operation, __LINE__, __VA_ARGS__)
#define IQA_LOGI(tag, ...) IQA_LOG_OP(ANDROID_LOG_INFO, tag, __func__, __VA_ARGS__)
#define IQA_LOGE(tag, ...) IQA_LOG_OP(ANDROID_LOG_ERROR, tag, __func__, __VA_ARGS__)

#endif  // IQA_COMMON_LOG_H
