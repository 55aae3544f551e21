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

}  // namespace IQA

// Every format is a literal that the prefix is joined to, so a line is formatted once, by the
// log itself, which also checks the arguments against it. The operation name is the enclosing
// function's own name unless a caller that works on behalf of another operation names it
// explicitly.
#define IQA_LOG_OP(priority, tag, operation, format, ...) \
    __android_log_print(priority, tag, "[%s:%d]:" format, operation, __LINE__, ##__VA_ARGS__)
#define IQA_LOGI(tag, ...) IQA_LOG_OP(ANDROID_LOG_INFO, tag, __func__, __VA_ARGS__)
#define IQA_LOGE(tag, ...) IQA_LOG_OP(ANDROID_LOG_ERROR, tag, __func__, __VA_ARGS__)

#endif  // IQA_COMMON_LOG_H
