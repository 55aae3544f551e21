// Pixel buffers whose bytes beyond a known offset are zero. The batch run's own buffers start
// zero and are cleared after every photo, so a stage that must clear one needs to clear only
// what was written since: the content afterwards is the same as after clearing it whole, without
// touching (and faulting in) tens of megabytes nobody wrote. Buffers the run does not own are
// unknown here and are cleared whole, as before.
#ifndef IQA_PROCESS_WRITTEN_EXTENT_H
#define IQA_PROCESS_WRITTEN_EXTENT_H

#include <cstddef>

namespace IQA {

// For the calling thread only: the batch run and its chain share the worker thread.
class WrittenExtent {
  public:
    // From now on `buffer` (all zero) is tracked; until Forget, writers must report.
    static void Track(const unsigned char* buffer);
    static void Forget(const unsigned char* buffer);
    // A writer is about to write bytes [0, end) of `buffer`.
    static void NoteWritten(const unsigned char* buffer, size_t end);
    // Bytes of `buffer` that may be non-zero: its whole capacity unless it is tracked.
    static size_t DirtyEnd(const unsigned char* buffer, size_t capacity);
    // Clears what may be non-zero with memset_s and returns its result (0 when nothing was).
    static int Clear(unsigned char* buffer, size_t capacity);
};

}  // namespace IQA

#endif  // IQA_PROCESS_WRITTEN_EXTENT_H
