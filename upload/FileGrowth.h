// Growing a file in place so that a failure leaves it as it was: reserve the new length first,
// write, flush to storage, and put the old bytes back if the write still fails.
#ifndef IQA_UPLOAD_FILE_GROWTH_H
#define IQA_UPLOAD_FILE_GROWTH_H

#include <cstdint>
#include <cstdio>

namespace IQA {

// Allocates storage for `growth` more bytes behind the file's `length` bytes. On failure (full
// disk, file size limit) the file keeps its length and false is returned.
bool ReserveGrowth(FILE* file, int64_t length, int64_t growth);

// Writes `count` bytes at `offset` and flushes them to storage. If that fails, the original
// `oldCount` bytes that stood at `offset` are written back and the file is cut to `oldLength`.
bool WriteDurably(FILE* file, int64_t offset, const unsigned char* bytes, size_t count,
                  const unsigned char* oldBytes, size_t oldCount, int64_t oldLength);

}  // namespace IQA

#endif  // IQA_UPLOAD_FILE_GROWTH_H
