// Locating the last record of a photo file's trailer, reading from the end backwards.
#ifndef IQA_UPLOAD_PHOTO_TRAILER_H
#define IQA_UPLOAD_PHOTO_TRAILER_H

#include <cstdint>
#include <cstdio>

namespace IQA {

constexpr int64_t kFileHeaderSize = 24;  // other data's length (uint32 LE), then 20 bytes
constexpr int64_t kDataHeaderSize = 12;  // payload length (uint32 LE), then an 8-byte tag

// Where the last record begins and how long the file is from there on.
struct TrailerTail {
    int64_t fileLength;  // L
    int64_t offset;      // O: start of the last record's payload, at least 1
    int64_t length;      // T = L - O: last payload, its header, the other data, the file header
};

enum class TrailerStatus {
    kFound,
    kNoFileHeader,  // file shorter than a file header, or it could not be read
    kNoDataHeader,  // the data header could not be read where the file header points
    kOutside,       // the lengths point at or before the start of the file
};

// Reads the two headers through file; every seek and read is checked. Lengths are added in
// 64 bits, so no header value can wrap around into a region inside the file.
TrailerStatus LocateLastRecord(FILE* file, TrailerTail* tail);

}  // namespace IQA

#endif  // IQA_UPLOAD_PHOTO_TRAILER_H
