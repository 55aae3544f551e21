// A two-entry, thread-local table of tracked buffers and how far they were written.
#include "WrittenExtent.h"

#include <algorithm>

#include "SafeCopy.h"

namespace IQA {

namespace {

struct Entry {
    const unsigned char* buffer = nullptr;
    size_t end = 0;
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

}  // namespace

void WrittenExtent::Track(const unsigned char* buffer) {
    for (Entry& e : gEntries) {
        if (e.buffer == nullptr) {  // with no free entry the buffer stays unknown: full clears
            e = Entry{buffer, 0};
            return;
        }
    }
}

void WrittenExtent::Forget(const unsigned char* buffer) {
    if (Entry* e = Find(buffer)) {
        *e = Entry{};
    }
}

void WrittenExtent::NoteWritten(const unsigned char* buffer, size_t end) {
    if (Entry* e = Find(buffer)) {
        e->end = std::max(e->end, end);
    }
}

size_t WrittenExtent::DirtyEnd(const unsigned char* buffer, size_t capacity) {
    const Entry* e = Find(buffer);
    return e == nullptr ? capacity : std::min(e->end, capacity);
}

int WrittenExtent::Clear(unsigned char* buffer, size_t capacity) {
    const size_t dirty = DirtyEnd(buffer, capacity);
    if (dirty == 0) {
        return 0;
    }
    const int result = memset_s(buffer, dirty, 0, dirty);
    if (Entry* e = Find(buffer)) {
        e->end = 0;
    }
    return result;
}

}  // namespace IQA
