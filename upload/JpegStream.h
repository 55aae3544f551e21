// Where the JPEG stream at the start of a photo ends, so that a trailer can be required to
// begin exactly there.
#ifndef IQA_UPLOAD_JPEG_STREAM_H
#define IQA_UPLOAD_JPEG_STREAM_H

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

}  // namespace IQA

#endif  // IQA_UPLOAD_JPEG_STREAM_H
