// libjpeg's input from an open file, read in 64 KiB blocks instead of the stdio source's 4 KiB:
// one system call per block of a multi-megabyte photo. End of file and an empty file are
// reported exactly as the stdio source reports them.
#ifndef IQA_PROCESS_JPEG_FILE_SOURCE_H
#define IQA_PROCESS_JPEG_FILE_SOURCE_H

#include <cstdio>

#include <jpeglib.h>

namespace IQA {

// Like jpeg_stdio_src: the source and its buffer live in the decompressor's permanent pool.
void UseFileSource(j_decompress_ptr cinfo, FILE* file);

}  // namespace IQA

#endif  // IQA_PROCESS_JPEG_FILE_SOURCE_H
