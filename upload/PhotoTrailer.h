// A photo file's trailer and its one codec: the file header, the other data, and a chain of
// records (payload, then a 12-byte data header) read from the end backwards to the end of the
// image data; the data header and file header as they are written, and the image descriptor that
// ends the payload of a custom-buffer record. All integers are little-endian.
#ifndef IQA_UPLOAD_PHOTO_TRAILER_H
#define IQA_UPLOAD_PHOTO_TRAILER_H

#include <cstdint>
#include <string>
#include <vector>

#include "common/ByteSource.h"

namespace IQA {

constexpr int64_t kFileHeaderSize = 24;   // other data's length (uint32 LE), then 20 bytes
constexpr int64_t kDataHeaderSize = 12;   // payload length (uint32 LE), then an 8-byte tag
constexpr int64_t kTagSize = 8;           // a data header's tag, NUL-padded
constexpr int64_t kDescriptorSize = 120;  // five int32, a 30-byte name, 70 reserved bytes

// Writes a data header: payloadLength, then the tag's 8 bytes as given.
void EncodeDataHeader(uint32_t payloadLength, const char* tag, unsigned char* out);
// Writes a file header: otherLength, then the 20 carried bytes as given.
void EncodeFileHeader(uint32_t otherLength, const unsigned char* carried, unsigned char* out);

// An image descriptor as a file holds it.
struct ImageDescriptor {
    int32_t width, height, stride, size, format;
    std::string algoname;  // up to its first NUL, at most 30 bytes
};

// The descriptor whose kDescriptorSize bytes end a payload of `length` bytes: false when the
// payload is too short for one or when the descriptor's size does not account for the rest of it.
bool DecodeDescriptor(const unsigned char* bytes, uint64_t length, ImageDescriptor* descriptor);

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
    uint64_t imageEnd{};                 // where a whole chain closes
    const char* problem = nullptr;       // why the chain is not whole; null when it is
};

// Walks the whole chain from the file header back to the image data, which ends at one of
// `imageEnds` (ascending, at least one: where a photo's last image may end). It is whole when it
// has at least one record and closes exactly at one of them, the first it meets; no record may
// reach below the first. A data header of twelve zero bytes (what a torn write leaves) breaks
// it. Records read before a break are kept in chain->records.
bool WalkTrailer(ByteSource& source, const std::vector<uint64_t>& imageEnds, TrailerChain* chain);

}  // namespace IQA

#endif  // IQA_UPLOAD_PHOTO_TRAILER_H
