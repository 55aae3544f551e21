// The structure of a JPEG stream, walked byte by byte without decoding: where a stream in a photo
// ends (the photo's further images, then its trailer, begin exactly there) and where its
// multi-picture index lies, and whether a scan's data can hold nothing but what a decoder reads
// past without failing.
#ifndef IQA_COMMON_JPEG_STREAM_H
#define IQA_COMMON_JPEG_STREAM_H

#include <cstddef>
#include <cstdint>

#include "common/ByteSource.h"

namespace IQA {

enum class JpegEnd {
    kFound,    // the stream's end was found
    kNotJpeg,  // the source holds no SOI marker where the stream should start
    kNoEnd,    // a JPEG whose markers run out, break off or never reach EOI
};

struct JpegStreamEnd {
    uint64_t end{};          // just past the EOI marker
    uint64_t indexAt = 0;    // the first APP2 segment's payload that starts "MPF\0"; 0: none
    uint64_t indexLength{};  // that payload's length
};

// Walks the stream that starts at `start`. Segments are skipped by their lengths (an EXIF
// segment's embedded JPEG and its own EOI are never looked into); fill bytes 0xFF may precede a
// marker; in entropy-coded data 0xFF 0x00 is a stuffed byte and RST0-RST7 carry on the scan,
// which ends at the first other marker. Every scan of a progressive file is walked the same way.
JpegEnd FindJpegEnd(ByteSource& source, uint64_t start, JpegStreamEnd* found);

// The entropy-coded data of a file's only scan, fed in order from the scan's start as it is read:
// whether it holds nothing but stuffed bytes 0xFF 0x00, fill bytes and the restart markers of
// `mcus` MCUs with `restartInterval` MCUs between markers (RST0, RST1, ... in their cyclic order,
// as many as the interval makes; none when it is 0), and then ends at an EOI marker. Such data
// cannot make a decoder fail: damage in it (a flipped bit) is only ever warned about.
class ScanCheck {
  public:
    ScanCheck(unsigned restartInterval, uint64_t mcus);
    // Takes the next bytes; false once the data has ended (at an EOI, or at anything the check
    // does not accept), after which no byte changes the verdict.
    bool Feed(const unsigned char* bytes, size_t count);
    // The verdict once the data has ended: false for any other marker, a marker out of order, or
    // data that was never seen to end (a file that ends before its EOI).
    bool EndsAtEoi() const { return state_ == State::kEoi; }

  private:
    enum class State { kData, kMarker, kEoi, kOther };
    State Next(unsigned char code);

    uint64_t restarts_;  // markers the encoder writes: one between two intervals
    uint64_t seen_ = 0;
    State state_ = State::kData;
};

}  // namespace IQA

#endif  // IQA_COMMON_JPEG_STREAM_H
