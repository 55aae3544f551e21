// A two-entry, thread-local table of tracked buffers and how far they were written.
#include "WrittenExtent.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "SafeCopy.h"

namespace IQA {

namespace {

struct Entry {
    const unsigned char* buffer = nullptr;
    size_t end = 0;
    size_t mapped = 0;  // bytes known to have their pages in place
};

// The batch run tracks its two pixel buffers.
thread_local Entry gEntries[2];

Entry* Find(const unsigned char* buffer) {
    for (Entry& e : gEntries) {
        if (buffer != nullptr && e.buffer == buffer) {
            return &e;
        }
    }
    return nullptr;
}

// The tracked buffers come fresh from calloc, so the first write to each page traps into the
// kernel; asking for the pages a writer is about to fill in one call is much cheaper (on a
// kernel without MADV_POPULATE_WRITE the pages simply fault in as they are written).
void MapPages(Entry& e, size_t end) {
#ifdef MADV_POPULATE_WRITE
    const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const uintptr_t from = (reinterpret_cast<uintptr_t>(e.buffer) + e.mapped) & ~(page - 1);
    const uintptr_t to = reinterpret_cast<uintptr_t>(e.buffer) + end;
    madvise(reinterpret_cast<void*>(from), to - from, MADV_POPULATE_WRITE);
#endif
    e.mapped = end;
}

}  // namespace

void WrittenExtent::Track(const unsigned char* buffer) {
    for (Entry& e : gEntries) {
        if (e.buffer == nullptr) {  // with no free entry the buffer stays unknown: full clears
            e = Entry{buffer, 0, 0};
            return;
        }
    }
}

void WrittenExtent::Forget(const unsigned char* buffer) {
    if (Entry* e = Find(buffer)) {
        *e = Entry{};
    }
}

int WrittenExtent::Rewrite(unsigned char* buffer, size_t end) {
    Entry* e = Find(buffer);
    if (e == nullptr) {
        return 0;
    }
    if (end > e->mapped) {
        MapPages(*e, end);
    }
    const int result = e->end > end ? memset_s(buffer + end, e->end - end, 0, e->end - end) : 0;
    e->end = end;
    return result;
}

bool WrittenExtent::Tracked(const unsigned char* buffer) {
    return Find(buffer) != nullptr;
}

size_t WrittenExtent::DirtyEnd(const unsigned char* buffer, size_t capacity) {
    const Entry* e = Find(buffer);
    return e == nullptr ? capacity : std::min(e->end, capacity);
}

int WrittenExtent::Clear(unsigned char* buffer, size_t from, size_t capacity) {
    const size_t dirty = DirtyEnd(buffer, capacity);
    if (dirty <= from) {
        return 0;
    }
    const int result = memset_s(buffer + from, dirty - from, 0, dirty - from);
    if (Entry* e = Find(buffer)) {
        e->end = from;
    }
    return result;
}

}  // namespace IQA
