// Pixel buffers whose bytes beyond a known offset are zero. The batch run's own buffers start
// zero, and every writer of one first clears whatever an earlier photo left beyond what it is
// about to write; so the buffer always reads as if it had been cleared whole after each photo,
// without touching (and faulting in) tens of megabytes nobody wrote, or clearing what the next
// photo overwrites anyway. Buffers the run does not own are unknown here and cleared whole.
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
    // A writer is about to write all of bytes [0, end) of `buffer`: what an earlier writer left
    // beyond end is cleared with memset_s now, and its result returned (0 when nothing was).
    static int Rewrite(unsigned char* buffer, size_t end);
    static bool Tracked(const unsigned char* buffer);
    // Bytes of `buffer` that may be non-zero: its whole capacity unless it is tracked.
    static size_t DirtyEnd(const unsigned char* buffer, size_t capacity);
    // Clears what may be non-zero from byte `from` on with memset_s and returns its result (0
    // when nothing was); the bytes before `from` are kept.
    static int Clear(unsigned char* buffer, size_t from, size_t capacity);
};

}  // namespace IQA

#endif  // IQA_PROCESS_WRITTEN_EXTENT_H
