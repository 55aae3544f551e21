// The preparation stage as a batch run drives it: with the run's own buffers, and knowing what
// the stage after it reads.
#ifndef IQA_PROCESS_PREPARATION_H
#define IQA_PROCESS_PREPARATION_H

#include <cstddef>

#include "IqaProcessData.h"
#include "process/RunBuffer.h"

namespace IQA {

// What a batch run hands its preparation stage besides the record: its two buffers (behind the
// record's thumbBuffer and jpegBuffer) and what the next stage reads. A host's call has none.
struct RunInputs {
    RunBuffer* first = nullptr;
    RunBuffer* second = nullptr;
    ReadExtent next = nullptr;  // null: the next stage may read any byte
};

// IqaProcessData::ProcessImage. With `next`, a second image that is a JPEG with more pixels than
// the first is decoded and reduced only as far as the next stage reads, and its decode may end
// early; a first image that is a raw thumbnail is compacted only as far as the next stage reads
// (FinishThumbnail completes it for any other reader).
bool Prepare(IqaImageInfo& info, const RunInputs& run);

}  // namespace IQA

#endif  // IQA_PROCESS_PREPARATION_H
