// The raw thumbnail decode behind ThumbnailDecoder, told when its buffer is a batch run's own.
#ifndef IQA_PROCESS_THUMBNAIL_FILE_H
#define IQA_PROCESS_THUMBNAIL_FILE_H

#include "RunBuffer.h"

namespace IQA {

// ThumbnailDecoder with its log lines. In a run's buffer (`run` not null) the raw bytes behind
// the compacted image, which nothing reads there, are not written.
long long DecodeThumbnailFile(const char* path, unsigned char* buffer,
                              unsigned long long bufferSize, RunBuffer* run, int* width,
                              int* height);

}  // namespace IQA

#endif  // IQA_PROCESS_THUMBNAIL_FILE_H
