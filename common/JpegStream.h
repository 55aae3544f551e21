// The structure of a JPEG stream, walked byte by byte without decoding: where the stream at the
// start of a photo ends (a trailer must begin exactly there), and whether a scan's data can
// hold nothing but what a decoder reads past without failing.
#ifndef IQA_COMMON_JPEG_STREAM_H
#define IQA_COMMON_JPEG_STREAM_H

#include <cstdint>

#include "ByteSource.h"

namespace IQA {

enum class JpegEnd {
    kFound,    // *end: the offset just past the EOI marker
    kNotJpeg,  // the source does not start with an SOI marker
    kNoEnd,    // a JPEG whose markers run out, break off or never reach EOI
};

// Segments are skipped by their lengths (an EXIF segment's embedded JPEG and its own EOI are
// never looked into); fill bytes 0xFF may precede a marker; in entropy-coded data 0xFF 0x00 is a
// stuffed byte and RST0-RST7 carry on the scan, which ends at the first other marker. Every scan
// of a progressive file is walked the same way.
JpegEnd FindJpegEnd(ByteSource& source, uint64_t* end);

// True when the entropy-coded data of the only scan, starting at `scanStart`, holds nothing but
// stuffed bytes 0xFF 0x00, fill bytes and the restart markers of `mcus` MCUs with
// `restartInterval` MCUs between markers (RST0, RST1, ... in their cyclic order, as many as the
// interval makes; none when it is 0), and then ends at an EOI marker. Such data cannot make a
// decoder fail: damage in it (a flipped bit) is only ever warned about. Any other marker, a
// marker out of order, or a file that ends before its EOI is false.
bool ScanEndsAtEoi(ByteSource& source, uint64_t scanStart, unsigned restartInterval, uint64_t mcus);

}  // namespace IQA

#endif  // IQA_COMMON_JPEG_STREAM_H
