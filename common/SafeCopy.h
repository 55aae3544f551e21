// The bounds-checked copy functions of the secure C library, and the log line of a failed one.
#ifndef IQA_COMMON_SAFE_COPY_H
#define IQA_COMMON_SAFE_COPY_H

#include <safe_mem_lib.h>
#include <safe_str_lib.h>

#include "common/IqaLog.h"

// Logs "[operation:line]:return error(code)" when a bounded copy returned non-zero; the
// caller goes on with what it has. The _AS form names the operation for helpers.
#define IQA_CHECK_COPY_AS(tag, operation, call)                                               \
    do {                                                                                      \
        const int iqaCopyResult = (call);                                                     \
        if (iqaCopyResult != 0) {                                                             \
            IQA_LOG_OP(ANDROID_LOG_ERROR, tag, operation, "return error(%d)", iqaCopyResult); \
        }                                                                                     \
    } while (0)
#define IQA_CHECK_COPY(tag, call) IQA_CHECK_COPY_AS(tag, __func__, call)

#endif  // IQA_COMMON_SAFE_COPY_H
