// The JPEG decode behind JpegDecoder, with the destination of the rows left to a sink.
#ifndef IQA_PROCESS_JPEG_FILE_H
#define IQA_PROCESS_JPEG_FILE_H

#include "process/JpegRowSink.h"

namespace IQA {

// Resolves and opens path, checks that width x height x 3 fits bufferSize and decodes to RGB
// rows handed to sink, with JpegDecoder's log lines. Returns width x height, or 0 on failure.
long long DecodeJpegFile(const char* path, unsigned long long bufferSize, JpegRowSink& sink,
                         int* width, int* height);

}  // namespace IQA

#endif  // IQA_PROCESS_JPEG_FILE_H
