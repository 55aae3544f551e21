// The marker walks over a JPEG stream: to its end, and through one scan's data.
#include "common/JpegStream.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace IQA {

namespace {

constexpr unsigned char kMarkerByte = 0xFF;
constexpr unsigned char kStuffed = 0x00;
constexpr unsigned char kTem = 0x01;
constexpr unsigned char kRst0 = 0xD0, kRst7 = 0xD7;
constexpr unsigned char kSoi = 0xD8, kEoi = 0xD9, kSos = 0xDA, kApp2 = 0xE2;
constexpr unsigned char kIndexSignature[] = {'M', 'P', 'F', 0};
constexpr size_t kChunk = 64 * 1024;

// Forward reads through a chunk of the source.
class Cursor {
  public:
    explicit Cursor(ByteSource& source) : source_(source), chunk_(kChunk) {}

    uint64_t position() const { return position_; }
    // False at the end of the source or when a read fails.
    bool Next(unsigned char* byte) {
        if (!Load()) {
            return false;
        }
        *byte = chunk_[position_++ - chunkStart_];
        return true;
    }
    // To any position; the next read loads the chunk that holds it.
    void Seek(uint64_t position) { position_ = position; }
    bool Skip(uint64_t count) {
        if (count > source_.Size() - position_) {
            return false;
        }
        position_ += count;
        return true;
    }
    // Moves to the next 0xFF at or after the position, in whole chunks at a time.
    bool FindMarkerByte() {
        while (Load()) {
            const unsigned char* from = chunk_.data() + (position_ - chunkStart_);
            const size_t left = chunkLength_ - (position_ - chunkStart_);
            const void* hit = std::memchr(from, kMarkerByte, left);
            if (hit != nullptr) {
                position_ += static_cast<const unsigned char*>(hit) - from;
                return true;
            }
            position_ += left;
        }
        return false;
    }

  private:
    bool Load() {
        if (position_ >= chunkStart_ && position_ < chunkStart_ + chunkLength_) {
            return true;
        }
        if (position_ >= source_.Size()) {
            return false;
        }
        chunkStart_ = position_;
        chunkLength_ = static_cast<size_t>(std::min<uint64_t>(kChunk, source_.Size() - position_));
        if (!source_.Read(chunkStart_, chunk_.data(), chunkLength_)) {
            chunkLength_ = 0;
            return false;
        }
        return true;
    }

    ByteSource& source_;
    std::vector<unsigned char> chunk_;
    uint64_t chunkStart_ = 0;
    size_t chunkLength_ = 0;
    uint64_t position_ = 0;
};

// The code of the next marker: bytes before its 0xFF (which a decoder skips with a warning) and
// fill bytes are passed over.
bool NextMarker(Cursor& cursor, unsigned char* code) {
    if (!cursor.FindMarkerByte()) {
        return false;
    }
    unsigned char byte = kMarkerByte;
    while (byte == kMarkerByte) {
        if (!cursor.Next(&byte)) {
            return false;
        }
    }
    *code = byte;
    return true;
}

// Skips a segment; *payload is its length without the 2 bytes of the length field.
bool SkipSegment(Cursor& cursor, unsigned* payload) {
    unsigned char high = 0, low = 0;
    if (!cursor.Next(&high) || !cursor.Next(&low)) {
        return false;
    }
    const unsigned length = static_cast<unsigned>(high) << 8 | low;  // counts its own 2 bytes
    if (length < 2) {
        return false;
    }
    *payload = length - 2;
    return cursor.Skip(*payload);
}

// Notes the segment of `payload` bytes at `at` as the stream's multi-picture index when it is
// the first APP2 segment that carries one.
void NoteIndex(ByteSource& source, uint64_t at, unsigned payload, JpegStreamEnd* found) {
    unsigned char signature[sizeof(kIndexSignature)];
    if (found->indexAt == 0 && payload >= sizeof(signature) &&
        source.Read(at, signature, sizeof(signature)) &&
        std::equal(signature, signature + sizeof(signature), kIndexSignature)) {
        found->indexAt = at;
        found->indexLength = payload;
    }
}

// Entropy-coded data runs to the first marker that is neither a stuffed byte nor a restart;
// the cursor is left on that marker's 0xFF.
bool SkipEntropyData(Cursor& cursor) {
    for (;;) {
        if (!cursor.FindMarkerByte()) {
            return false;
        }
        const uint64_t marker = cursor.position();
        unsigned char byte = kMarkerByte;
        while (byte == kMarkerByte) {
            if (!cursor.Next(&byte)) {
                return false;
            }
        }
        if (byte != kStuffed && (byte < kRst0 || byte > kRst7)) {
            cursor.Seek(marker);
            return true;
        }
    }
}

}  // namespace

ScanCheck::ScanCheck(unsigned restartInterval, uint64_t mcus)
    : restarts_(restartInterval == 0 || mcus == 0 ? 0 : (mcus - 1) / restartInterval) {}

bool ScanCheck::Feed(const unsigned char* bytes, size_t count) {
    const unsigned char* end = bytes + count;
    while (bytes < end) {
        if (state_ == State::kData) {
            const void* hit = std::memchr(bytes, kMarkerByte, static_cast<size_t>(end - bytes));
            if (hit == nullptr) {
                return true;
            }
            bytes = static_cast<const unsigned char*>(hit) + 1;
            state_ = State::kMarker;
        } else if (state_ == State::kMarker) {
            state_ = Next(*bytes++);
        } else {
            return false;
        }
    }
    return state_ == State::kData || state_ == State::kMarker;
}

// After a 0xFF, with fill bytes 0xFF passed over: a stuffed byte, the next restart, or the end.
ScanCheck::State ScanCheck::Next(unsigned char code) {
    if (code == kMarkerByte) {
        return State::kMarker;
    }
    if (code == kStuffed) {
        return State::kData;
    }
    if (seen_ < restarts_ && code == kRst0 + seen_ % 8) {
        ++seen_;
        return State::kData;
    }
    return code == kEoi && seen_ == restarts_ ? State::kEoi : State::kOther;
}

JpegEnd FindJpegEnd(ByteSource& source, uint64_t start, JpegStreamEnd* found) {
    *found = JpegStreamEnd();
    unsigned char soi[2] = {};
    if (start > source.Size() || source.Size() - start < sizeof(soi)) {
        return JpegEnd::kNotJpeg;
    }
    if (!source.Read(start, soi, sizeof(soi))) {
        return JpegEnd::kNoEnd;  // unreadable: nothing may be concluded from it
    }
    if (soi[0] != kMarkerByte || soi[1] != kSoi) {
        return JpegEnd::kNotJpeg;
    }
    Cursor cursor(source);
    cursor.Seek(start + sizeof(soi));
    unsigned char code = 0;
    while (NextMarker(cursor, &code)) {
        if (code == kEoi) {
            found->end = cursor.position();
            return JpegEnd::kFound;
        }
        if (code == kSoi || code == kStuffed) {
            return JpegEnd::kNoEnd;
        }
        const bool standalone = code == kTem || (code >= kRst0 && code <= kRst7);
        unsigned payload = 0;
        if (!standalone && !SkipSegment(cursor, &payload)) {
            return JpegEnd::kNoEnd;
        }
        if (code == kApp2) {
            NoteIndex(source, cursor.position() - payload, payload, found);
        }
        if (code == kSos && !SkipEntropyData(cursor)) {
            return JpegEnd::kNoEnd;
        }
    }
    return JpegEnd::kNoEnd;
}

}  // namespace IQA
