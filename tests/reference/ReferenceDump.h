// Plain in-memory forms of what the dump decides and writes: where a JPEG ends, whether a
// trailer's chain closes there, and the bytes of a photo with one more record.
#ifndef IQA_TESTS_REFERENCE_DUMP_H
#define IQA_TESTS_REFERENCE_DUMP_H

#include <cstddef>
#include <vector>

#include "IqaUpLoad.h"

namespace iqa_ref {

using Bytes = std::vector<unsigned char>;

// Offset just past the EOI marker of the JPEG at the start of file, or 0 when there is none.
size_t JpegEnd(const Bytes& file);

// Where each record's payload lies, the file's last record first, when the chain of records
// walked back from the file header closes exactly at imageEnd (with no all-zero data header);
// none otherwise.
struct Record {
    size_t offset, length;
};
std::vector<Record> RecordsIfWhole(const Bytes& file, size_t imageEnd);

// Offset of the last record's payload when the chain closes; 0 otherwise.
size_t LastRecordIfWhole(const Bytes& file, size_t imageEnd);

// What a dump of `custom` must leave of `file`: unchanged when the two headers nearest the end
// point outside the file or, for a JPEG, when the chain does not close at the JPEG's end; else
// the file with the record inserted in front of its last record.
Bytes ExpectedDump(const Bytes& file, const Bytes& custom, const IQA::ImageDumpExpand& descriptor);

// file with the record for `custom` inserted at offset: custom, descriptor, data header.
Bytes WithRecord(const Bytes& file, size_t offset, const Bytes& custom,
                 const IQA::ImageDumpExpand& descriptor);

}  // namespace iqa_ref

#endif  // IQA_TESTS_REFERENCE_DUMP_H
