// The trailer walk of the dump: file header, then the data header of the last record.
#include "PhotoTrailer.h"

#include <sys/types.h>

namespace IQA {

namespace {

bool ReadAt(FILE* file, int64_t offset, unsigned char* out, size_t count) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           fread(out, 1, count, file) == count;
}

uint32_t LittleEndian32(const unsigned char* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
           static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

}  // namespace

TrailerStatus LocateLastRecord(FILE* file, TrailerTail* tail) {
    if (fseeko(file, 0, SEEK_END) != 0) {
        return TrailerStatus::kNoFileHeader;
    }
    const int64_t length = ftello(file);
    unsigned char fileHeader[kFileHeaderSize];
    if (length < kFileHeaderSize ||
        !ReadAt(file, length - kFileHeaderSize, fileHeader, sizeof(fileHeader))) {
        return TrailerStatus::kNoFileHeader;
    }
    const int64_t otherLength = LittleEndian32(fileHeader);
    const int64_t dataHeaderAt = length - kFileHeaderSize - otherLength - kDataHeaderSize;
    if (dataHeaderAt < 0) {
        return TrailerStatus::kOutside;
    }
    unsigned char dataHeader[kDataHeaderSize];
    if (!ReadAt(file, dataHeaderAt, dataHeader, sizeof(dataHeader))) {
        return TrailerStatus::kNoDataHeader;
    }
    const int64_t payloadAt = dataHeaderAt - static_cast<int64_t>(LittleEndian32(dataHeader));
    if (payloadAt < 1) {
        return TrailerStatus::kOutside;
    }
    *tail = TrailerTail{length, payloadAt, length - payloadAt};
    return TrailerStatus::kFound;
}

}  // namespace IQA
