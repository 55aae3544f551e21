// Shared pieces of the fuzz targets: a quiet logger, a per-process scratch file, and a check
// that aborts (so libFuzzer records the input) when a property fails.
#ifndef IQA_FUZZ_SUPPORT_H
#define IQA_FUZZ_SUPPORT_H

#include <android/log.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/files/CameraFiles.h"

namespace iqa_fuzz {

inline void Quiet(const struct __android_logger_data*, const char*) {}

inline void SilenceLog() {
    __android_log_set_logger(Quiet);
}

// The messages logged since the vector was last cleared, when CaptureLog is in effect.
inline std::vector<std::string>& Logged() {
    static std::vector<std::string> messages;
    return messages;
}

inline void Keep(const struct __android_logger_data*, const char* message) {
    Logged().push_back(message);
}

inline void CaptureLog() {
    __android_log_set_logger(Keep);
}

// A file of this process under the temporary folder, rewritten for every input and removed when
// the fuzzer exits (registered after the path is made, so it runs while the path still exists).
inline const std::string& ScratchPath() {
    static const std::string path =
        std::string(P_tmpdir) + "/iqa_fuzz_" + std::to_string(getpid()) + ".bin";
    static const int removal = std::atexit([] { unlink(ScratchPath().c_str()); });
    (void)removal;
    return path;
}

inline void WriteScratch(const std::vector<unsigned char>& bytes) {
    iqa_tools::WriteWholeFile(ScratchPath(), bytes);
}

inline std::vector<unsigned char> ReadScratch() {
    std::vector<unsigned char> bytes;
    iqa_tools::ReadWholeFile(ScratchPath(), &bytes);
    return bytes;
}

// Reads every byte so that the sanitizers see uninitialised or out-of-bounds data.
inline unsigned Touch(const unsigned char* data, size_t size) {
    unsigned sum = 0;
    for (size_t i = 0; i < size; ++i) {
        sum += data[i];
    }
    return sum;
}

#define IQA_FUZZ_CHECK(condition)                                                          \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            fprintf(stderr, "check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
            __builtin_trap();                                                              \
        }                                                                                  \
    } while (0)

}  // namespace iqa_fuzz

#endif  // IQA_FUZZ_SUPPORT_H
