// The trailer walks (the dump's two nearest headers, the whole chain back to the image) and the
// encoding of its headers and descriptors.
#include "upload/PhotoTrailer.h"

#include <algorithm>
#include <cstring>

#include "common/LittleEndian.h"

namespace IQA {

namespace {

bool ReadLength(ByteSource& source, uint64_t offset, uint32_t* length) {
    unsigned char bytes[4];
    if (!source.Read(offset, bytes, sizeof(bytes))) {
        return false;
    }
    *length = LoadLE32(bytes);
    return true;
}

bool Fail(TrailerChain* chain, const char* problem) {
    chain->problem = problem;
    return false;
}

}  // namespace

TrailerStatus LocateLastRecord(ByteSource& source, TrailerTail* tail) {
    const int64_t length = static_cast<int64_t>(source.Size());
    uint32_t otherLength{};
    if (length < kFileHeaderSize || !ReadLength(source, length - kFileHeaderSize, &otherLength)) {
        return TrailerStatus::kNoFileHeader;
    }
    const int64_t dataHeaderAt = length - kFileHeaderSize - otherLength - kDataHeaderSize;
    if (dataHeaderAt < 0) {
        return TrailerStatus::kOutside;
    }
    uint32_t payloadLength{};
    if (!ReadLength(source, dataHeaderAt, &payloadLength)) {
        return TrailerStatus::kNoDataHeader;
    }
    const int64_t payloadAt = dataHeaderAt - static_cast<int64_t>(payloadLength);
    if (payloadAt < 1) {
        return TrailerStatus::kOutside;
    }
    *tail = TrailerTail{length, payloadAt, length - payloadAt};
    return TrailerStatus::kFound;
}

bool WalkTrailer(ByteSource& source, const std::vector<uint64_t>& imageEnds, TrailerChain* chain) {
    *chain = TrailerChain();
    const uint64_t size = source.Size();
    const uint64_t floor = imageEnds.front();
    if (size < floor || size - floor < kFileHeaderSize + kDataHeaderSize ||
        !ReadLength(source, size - kFileHeaderSize, &chain->otherLength)) {
        return Fail(chain, "file too short for a trailer");
    }
    uint64_t position = size - kFileHeaderSize;
    if (chain->otherLength > position - floor - kDataHeaderSize) {
        return Fail(chain, "other-data length points into the image data");
    }
    position -= chain->otherLength;
    const auto closes = [&] {
        return std::binary_search(imageEnds.begin(), imageEnds.end(), position);
    };
    while (!closes()) {
        if (position - floor < kDataHeaderSize) {
            return Fail(chain, "the record chain does not end where the image data ends");
        }
        const uint64_t header = position - kDataHeaderSize;
        unsigned char bytes[kDataHeaderSize];
        if (!source.Read(header, bytes, sizeof(bytes))) {
            return Fail(chain, "a record header cannot be read");
        }
        if (std::all_of(bytes, bytes + sizeof(bytes), [](unsigned char b) { return b == 0; })) {
            return Fail(chain, "a record header of zeros (a torn write)");
        }
        const uint32_t payload = LoadLE32(bytes);
        if (payload > header - floor) {
            return Fail(chain, "a record length points into the image data");
        }
        const char* tag = reinterpret_cast<const char*>(bytes + 4);
        chain->records.push_back({header - payload, payload, std::string(tag, strnlen(tag, 8))});
        position = header - payload;
    }
    if (chain->records.empty()) {
        return Fail(chain, "no record before the other data");
    }
    chain->imageEnd = position;
    return true;
}

void EncodeDataHeader(uint32_t payloadLength, const char* tag, unsigned char* out) {
    StoreLE32(out, payloadLength);
    std::memcpy(out + 4, tag, kTagSize);
}

void EncodeFileHeader(uint32_t otherLength, const unsigned char* carried, unsigned char* out) {
    StoreLE32(out, otherLength);
    std::memcpy(out + 4, carried, kFileHeaderSize - 4);
}

bool DecodeDescriptor(const unsigned char* bytes, uint64_t length, ImageDescriptor* d) {
    constexpr size_t kNameAt = 20, kNameSize = 30;
    if (length < kDescriptorSize) {
        return false;
    }
    int32_t* fields[] = {&d->width, &d->height, &d->stride, &d->size, &d->format};
    for (size_t i = 0; i < 5; ++i) {
        *fields[i] = static_cast<int32_t>(LoadLE32(bytes + 4 * i));
    }
    const char* name = reinterpret_cast<const char*>(bytes + kNameAt);
    d->algoname = std::string(name, strnlen(name, kNameSize));
    return d->size >= 0 && static_cast<uint64_t>(d->size) + kDescriptorSize == length;
}

}  // namespace IQA
