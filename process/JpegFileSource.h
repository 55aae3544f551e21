// libjpeg's input from an open file, read in 64 KiB blocks instead of the stdio source's 4 KiB:
// one system call per block of a multi-megabyte photo. End of file and an empty file are
// reported exactly as the stdio source reports them.
#ifndef IQA_PROCESS_JPEG_FILE_SOURCE_H
#define IQA_PROCESS_JPEG_FILE_SOURCE_H

#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

namespace IQA {

// Like jpeg_stdio_src: the source and its buffer live in the decompressor's permanent pool.
void UseFileSource(j_decompress_ptr cinfo, FILE* file);

// The file offset of the next byte libjpeg will take from the source, or kNoOffset once the
// source has made up an end of its own (a truncated file).
constexpr uint64_t kNoOffset = UINT64_MAX;
uint64_t SourceOffset(j_decompress_ptr cinfo);

}  // namespace IQA

#endif  // IQA_PROCESS_JPEG_FILE_SOURCE_H
