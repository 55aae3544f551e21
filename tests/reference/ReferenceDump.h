// Plain in-memory forms of what the dump decides and writes: where a JPEG and the images it
// carries end, whether a trailer's chain closes there, and the bytes of a photo with one more
// record.
#ifndef IQA_TESTS_REFERENCE_DUMP_H
#define IQA_TESTS_REFERENCE_DUMP_H

#include <cstddef>
#include <vector>

#include "IqaUpLoad.h"

namespace iqa_ref {

using Bytes = std::vector<unsigned char>;

// Offset just past the EOI marker of the JPEG that starts at `start`, or 0 when there is none.
size_t JpegEnd(const Bytes& file, size_t start = 0);

// Where the image data of a JPEG photo may end, ascending: behind the primary JPEG or, when its
// first APP2 "MPF\0" segment indexes further images, behind the last of them (each must lie
// behind the primary, inside the file, and start with SOI); then behind each JPEG that follows
// back to back. None when the photo's images are not known.
std::vector<size_t> ImageEnds(const Bytes& file);

// Where each record's payload lies, the file's last record first, when the chain of records
// walked back from the file header closes exactly at one of imageEnds, the first it meets, and
// never reaches below the first of them (with no all-zero data header); none otherwise.
struct Record {
    size_t offset, length;
};
std::vector<Record> RecordsIfWhole(const Bytes& file, const std::vector<size_t>& imageEnds);

// Offset of the last record's payload when the chain closes behind the photo's images; 0
// otherwise.
size_t LastRecordIfWhole(const Bytes& file);

// What a dump of `custom` must leave of `file`: unchanged when the two headers nearest the end
// point outside the file or, for a JPEG, when the chain does not close behind its images; else
// the file with the record inserted in front of its last record.
Bytes ExpectedDump(const Bytes& file, const Bytes& custom, const IQA::ImageDumpExpand& descriptor);

// file with the record for `custom` inserted at offset: custom, descriptor, data header.
Bytes WithRecord(const Bytes& file, size_t offset, const Bytes& custom,
                 const IQA::ImageDumpExpand& descriptor);

}  // namespace iqa_ref

#endif  // IQA_TESTS_REFERENCE_DUMP_H
