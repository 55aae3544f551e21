// The multi-picture index a photo's primary JPEG may carry in an APP2 segment: a TIFF structure
// after "MPF\0", in the byte order its mark says, whose tag 0xB002 lists every image the file
// holds (a gain map, a depth map, further frames) with its attribute, size and offset.
#ifndef IQA_COMMON_MULTI_PICTURE_H
#define IQA_COMMON_MULTI_PICTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "common/ByteSource.h"

namespace IQA {

struct PictureEntry {
    uint32_t attribute;
    uint32_t size;
    uint64_t offset;  // from the start of the file; 0 for the first image, the primary
};

// Reads the entries of the index in the segment payload of `length` bytes at `at`, which starts
// "MPF\0", in index order. The index is a claim, not a fact: nothing here checks the entries
// against the file. Returns null, or why the index cannot be read.
const char* ReadPictureIndex(ByteSource& source, uint64_t at, uint64_t length,
                             std::vector<PictureEntry>* entries);

// What an entry's attribute says its image is ("primary", "gain map or undefined", "disparity or
// depth", ...).
std::string PictureKind(uint32_t attribute);

}  // namespace IQA

#endif  // IQA_COMMON_MULTI_PICTURE_H
