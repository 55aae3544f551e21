// Resolution of a relative or symbolic path into the fixed 4096-byte buffer the decoders and
// the dump open files through.
#ifndef IQA_COMMON_RESOLVED_PATH_H
#define IQA_COMMON_RESOLVED_PATH_H

#include <climits>
#include <cstdlib>

namespace IQA {

// realpath writes at most PATH_MAX bytes.
constexpr int kResolvedPathSize = PATH_MAX;
static_assert(kResolvedPathSize == 4096, "the decoders' and the dump's path buffer");

// The buffer starts zero-filled so that a failed realpath leaves a defined (empty, or partial)
// string behind for the log line.
struct ResolvedPath {
    char path[kResolvedPathSize] = {};
    bool ok = false;

    explicit ResolvedPath(const char* given) { ok = realpath(given, path) != nullptr; }
};

}  // namespace IQA

#endif  // IQA_COMMON_RESOLVED_PATH_H
