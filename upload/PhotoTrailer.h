// A photo file's trailer, read from the end backwards: the file header, the other data, and a
// chain of records (payload, then a 12-byte data header) back to the end of the image data.
#ifndef IQA_UPLOAD_PHOTO_TRAILER_H
#define IQA_UPLOAD_PHOTO_TRAILER_H

#include <cstdint>
#include <string>
#include <vector>

#include "ByteSource.h"

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

// Reads the two headers nearest the end. Lengths are added in 64 bits, so no header value can
// wrap around into a region inside the file.
TrailerStatus LocateLastRecord(ByteSource& source, TrailerTail* tail);

struct TrailerRecord {
    uint64_t payloadOffset;
    uint32_t payloadLength;
    std::string tag;  // the header's 8 tag bytes up to the first NUL
};

struct TrailerChain {
    uint32_t otherLength{};
    std::vector<TrailerRecord> records;  // the file's last record first
    const char* problem = nullptr;       // why the chain is not whole; null when it is
};

// Walks the whole chain from the file header back to `imageEnd`. It is whole when it has at
// least one record and closes exactly at imageEnd; a data header of twelve zero bytes (what a
// torn write leaves) breaks it. Records read before a break are kept in chain->records.
bool WalkTrailer(ByteSource& source, uint64_t imageEnd, TrailerChain* chain);

}  // namespace IQA

#endif  // IQA_UPLOAD_PHOTO_TRAILER_H
