// libjpeg's input from an open file, read in 64 KiB blocks instead of the stdio source's 4 KiB:
// one system call per block of a multi-megabyte photo. End of file and an empty file are
// reported exactly as the stdio source reports them. A scan check can watch the bytes go by, so
// that proving the rest of a scan harmless never reads the same bytes twice.
#ifndef IQA_PROCESS_JPEG_FILE_SOURCE_H
#define IQA_PROCESS_JPEG_FILE_SOURCE_H

#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

#include "common/JpegStream.h"

namespace IQA {

// Like jpeg_stdio_src: the source and its buffer live in the decompressor's permanent pool.
void UseFileSource(j_decompress_ptr cinfo, FILE* file);

// The file offset of the next byte libjpeg will take from the source, or kNoOffset once the
// source has made up an end of its own (a truncated file).
constexpr uint64_t kNoOffset = UINT64_MAX;
uint64_t SourceOffset(j_decompress_ptr cinfo);

// From now on the file's bytes from the source's offset on go to `check` too (null: no longer),
// those already read first, each block as it is read.
void WatchScan(j_decompress_ptr cinfo, ScanCheck* check);
// Feeds the watching check the rest of the file, past what libjpeg has read, until the check has
// seen the scan's data end or the file ends; libjpeg's own reading is left where it was.
void FeedRest(j_decompress_ptr cinfo);

}  // namespace IQA

#endif  // IQA_PROCESS_JPEG_FILE_SOURCE_H
