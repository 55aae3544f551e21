// Clearing a run's buffer only as far as an earlier photo wrote it.
#include "process/RunBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "common/SafeCopy.h"

namespace IQA {

namespace {

// The run's buffers come fresh from calloc, so the first write to each page traps into the
// kernel; asking for the pages a writer is about to fill in one call is much cheaper (on a
// kernel without MADV_POPULATE_WRITE the pages simply fault in as they are written).
void MapPages(RunBuffer& run, size_t end) {
#ifdef MADV_POPULATE_WRITE
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t from = (reinterpret_cast<uintptr_t>(run.data) + run.mapped) & ~(page - 1);
    const uintptr_t to = reinterpret_cast<uintptr_t>(run.data) + end;
    madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
#endif
    run.mapped = end;
}

}  // namespace

int Rewrite(RunBuffer* run, size_t end) {
    if (run == nullptr) {
        return 0;
    }
    end = std::min(end, run->capacity);
    if (end > run->mapped) {
        MapPages(*run, end);
    }
    const size_t stale = run->dirty;
    run->dirty = end;
    return stale > end ? memset_s(run->data + end, stale - end, 0, stale - end) : 0;
}

int ClearFrom(unsigned char* data, size_t capacity, RunBuffer* run, size_t from) {
    const size_t dirty = run == nullptr ? capacity : std::min(run->dirty, capacity);
    if (dirty <= from) {
        return 0;
    }
    if (run != nullptr) {
        run->dirty = from;
    }
    return memset_s(data + from, dirty - from, 0, dirty - from);
}

}  // namespace IQA
