// The raw thumbnail decode behind ThumbnailDecoder, told when its buffer is a batch run's own.
#ifndef IQA_PROCESS_THUMBNAIL_FILE_H
#define IQA_PROCESS_THUMBNAIL_FILE_H

#include "process/RunBuffer.h"

namespace IQA {

// ThumbnailDecoder with its log lines. In a run's buffer (`run` not null) the raw bytes behind
// the compacted image, which nothing reads there, are not written; with `next`, only the pixels
// that hold the bytes the next stage reads are compacted at once,
// and the others are left raw in place for FinishThumbnail. The whole file is read either way,
// so the decode succeeds or fails as a whole one does.
long long DecodeThumbnailFile(const char* path, unsigned char* buffer,
                              unsigned long long bufferSize, RunBuffer* run, ReadExtent next,
                              int* width, int* height);

// Compacts the pixels a run's thumbnail decode left raw, before anything reads past what the
// next stage reads (a reduction of the thumbnail, the reply).
void FinishThumbnail(RunBuffer* run);

}  // namespace IQA

#endif  // IQA_PROCESS_THUMBNAIL_FILE_H
