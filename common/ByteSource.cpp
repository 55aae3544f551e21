// Bounded reads from memory and from a file through a read window.
#include "common/ByteSource.h"

#include <algorithm>
#include <cstring>

#include "common/FileCalls.h"

namespace IQA {

namespace {

bool Inside(uint64_t offset, size_t count, uint64_t size) {
    return offset <= size && count <= size - offset;
}

}  // namespace

bool MemorySource::Read(uint64_t offset, unsigned char* out, size_t count) {
    if (!Inside(offset, count, size_)) {
        return false;
    }
    std::memcpy(out, bytes_ + offset, count);
    return true;
}

bool FileSource::Read(uint64_t offset, unsigned char* out, size_t count) {
    if (!Inside(offset, count, size_)) {
        return false;
    }
    const auto inWindow = [&] {
        return offset >= windowStart_ && offset + count <= windowStart_ + window_.size();
    };
    if (!inWindow()) {
        if (count > kWindow / 2) {
            return ReadFully(fd_, offset, out, count);
        }
        // A walk backwards (below the window) finds its next headers just before the request.
        const uint64_t end = offset + count;
        windowStart_ = offset < windowStart_ ? end - std::min<uint64_t>(end, kWindow) : offset;
        window_.resize(static_cast<size_t>(std::min<uint64_t>(kWindow, size_ - windowStart_)));
        if (!ReadFully(fd_, windowStart_, window_.data(), window_.size())) {
            window_.clear();
            return false;
        }
    }
    // copy_n, not memcpy: a read of nothing before the first window has no source to name.
    std::copy_n(window_.begin() + static_cast<std::ptrdiff_t>(offset - windowStart_), count, out);
    return true;
}

}  // namespace IQA
