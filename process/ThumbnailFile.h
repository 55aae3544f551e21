// The raw thumbnail decode behind ThumbnailDecoder, told when its buffer is a batch run's own.
#ifndef IQA_PROCESS_THUMBNAIL_FILE_H
#define IQA_PROCESS_THUMBNAIL_FILE_H

#include "process/RunBuffer.h"

namespace IQA {

// ThumbnailDecoder with its log lines. In a run's buffer (`run` not null) the raw bytes behind
// the compacted image, which nothing reads there, are not written; with `next`, only the pixels
// that hold the bytes the next stage reads are written, and the file stays open in the run's
// buffer for FinishThumbnail. The whole file is read either way, so the decode succeeds or fails
// as a whole one does.
long long DecodeThumbnailFile(const char* path, unsigned char* buffer,
                              unsigned long long bufferSize, RunBuffer* run, ReadExtent next,
                              int* width, int* height);

// Reads and compacts the pixels a run's thumbnail decode left in the file, before anything reads
// past what the next stage reads (a reduction of the thumbnail, the reply), and closes the file.
// False, with the decoder's line, when they can no longer be read.
bool FinishThumbnail(RunBuffer* run);

}  // namespace IQA

#endif  // IQA_PROCESS_THUMBNAIL_FILE_H
