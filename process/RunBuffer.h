// A batch run's pixel buffer as the run hands it to its own stages, with how far an earlier photo
// may have left bytes in it. The run's buffers come zero from calloc, and every writer first
// clears what an earlier photo left beyond what it is about to write; so the buffer always reads
// as if it had been cleared whole after each photo, without touching (and faulting in) tens of
// megabytes nobody wrote, or clearing what the next photo overwrites anyway. A buffer of a caller
// of its own is passed as null: nothing is known of its bytes, and clears cover all of it.
#ifndef IQA_PROCESS_RUN_BUFFER_H
#define IQA_PROCESS_RUN_BUFFER_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/ScopedFile.h"

namespace IQA {

struct RunBuffer {
    unsigned char* data;
    size_t capacity;
    size_t dirty{};   // bytes from here on are zero
    size_t mapped{};  // bytes whose pages were asked for
    // A thumbnail compacted only as far as the next stage reads: its pixels [from, to) are still
    // only in its file, kept open, until FinishThumbnail reads and compacts them.
    struct Tail {
        ScopedFile file;
        std::string path;
        int64_t from{};
        int64_t to{};
    };
    Tail tail{};
};

// How many leading bytes of each buffer a stage reads when it compares two images of
// width x height pixels.
using ReadExtent = size_t (*)(int width, int height);

// A writer is about to write all of bytes [0, end) of the run's buffer `run` (null: a caller's
// own, left alone): what an earlier photo left beyond end is cleared with memset_s now, and its
// result returned (0 when nothing was cleared).
int Rewrite(RunBuffer* run, size_t end);

// Clears bytes [from, capacity) of `data` with memset_s, as far as they may be non-zero (all of
// them when run is null), keeping those before `from`; returns memset_s's result (0 when nothing
// was cleared).
int ClearFrom(unsigned char* data, size_t capacity, RunBuffer* run, size_t from);

}  // namespace IQA

#endif  // IQA_PROCESS_RUN_BUFFER_H
