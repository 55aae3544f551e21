// The camera's raw thumbnail: a 16-byte header, then 4 bytes a pixel (R, G, B, unused).
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "IqaProcessData.h"
#include "common/IqaLog.h"
#include "common/KernelClones.h"
#include "common/LittleEndian.h"
#include "common/MallocBlock.h"
#include "common/ResolvedPath.h"
#include "common/SafeCopy.h"
#include "common/ScopedFile.h"
#include "process/ThumbnailFile.h"

namespace IQA {

namespace {

// The decode runs in a helper whose log lines belong to the exported operation.
constexpr const char* kOperation = "ThumbnailDecoder";
constexpr size_t kHeaderSize = 16;
constexpr int kRawPixelBytes = 4;

// Raw pixels are read 256 KiB at a time through the header's allocation: few read calls, and
// each block is still in L2 when it is compacted.
constexpr size_t kBlockPixels = 64 * 1024;

// R, G, B of each raw pixel, the fourth byte dropped; source and destination never overlap, so
// compilers vectorise it.
IQA_KERNEL_CLONES void DropFourthBytes(const unsigned char* __restrict raw, int64_t pixels,
                                       unsigned char* __restrict rgb) {
    for (int64_t i = 0; i < pixels; ++i) {
        rgb[3 * i] = raw[4 * i];
        rgb[3 * i + 1] = raw[4 * i + 1];
        rgb[3 * i + 2] = raw[4 * i + 2];
    }
}

// Reads the raw pixels and writes the first `compact` of them compacted, block by block; the
// others are read raw straight into place, at 4 x their index. A whole read compacted in place
// would leave the last quarter of the raw bytes behind the image; so does this with keepTail.
bool ReadPixels(FILE* file, unsigned char* block, int64_t pixels, int64_t compact,
                unsigned char* buffer, bool keepTail) {
    const size_t image = static_cast<size_t>(pixels) * 3;
    for (int64_t done = 0; done < compact;) {
        const int64_t count = std::min<int64_t>(kBlockPixels, compact - done);
        const size_t bytes = static_cast<size_t>(count) * kRawPixelBytes;
        if (fread(block, 1, bytes, file) != bytes) {
            return false;
        }
        DropFourthBytes(block, count, buffer + static_cast<size_t>(done) * 3);
        const size_t from = static_cast<size_t>(done) * kRawPixelBytes;
        if (keepTail && from + bytes > image) {
            const size_t skip = image > from ? image - from : 0;
            std::memcpy(buffer + from + skip, block + skip, bytes - skip);
        }
        done += count;
    }
    const size_t raw = static_cast<size_t>(pixels - compact) * kRawPixelBytes;
    return fread(buffer + static_cast<size_t>(compact) * kRawPixelBytes, 1, raw, file) == raw;
}

// Pixels to compact at once in a run's buffer: those holding the bytes the next stage reads, and
// at least the 3 that let FinishThumbnail's first piece move (it never writes over raw bytes).
int64_t CompactNow(int32_t w, int32_t h, int64_t pixels, const RunBuffer* run, ReadExtent next) {
    constexpr int64_t kLeastCompacted = 3;
    if (run == nullptr || next == nullptr) {
        return pixels;
    }
    const int64_t read = static_cast<int64_t>((next(w, h) + 2) / 3);
    return std::min(pixels, std::max(read, kLeastCompacted));
}

// True when 4 x pixels raw bytes fit the capacity; a negative count never does. Written so
// that no header value can overflow the comparison.
bool RawPixelsFit(int64_t pixels, unsigned long long bufferSize) {
    return pixels >= 0 && static_cast<unsigned long long>(pixels) <= bufferSize / kRawPixelBytes;
}

}  // namespace

long long DecodeThumbnailFile(const char* path, unsigned char* buffer,
                              unsigned long long bufferSize, RunBuffer* run, ReadExtent next,
                              int* width, int* height) {
    if (run != nullptr) {
        run->rawFrom = run->rawTo = 0;
    }
    const ResolvedPath resolved(path);
    if (!resolved.ok) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Failed to resolve path%s.",
                   resolved.path);
        return 0;
    }
    ScopedFile file(resolved.path);
    if (!file) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "can't open %s.", resolved.path);
        return 0;
    }
    MallocBlock header(kHeaderSize + kBlockPixels * kRawPixelBytes);
    if (!header || fread(header.get(), 1, kHeaderSize, file.get()) != kHeaderSize) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation,
                   "Failed to read file header: %s.", path);
        return 0;
    }
    const int32_t w = static_cast<int32_t>(LoadLE32(header.get() + 8));
    const int32_t h = static_cast<int32_t>(LoadLE32(header.get() + 12));
    const int64_t pixels = static_cast<int64_t>(w) * h;
    if (!RawPixelsFit(pixels, bufferSize)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "buffer size too small!");
        return 0;
    }
    const int64_t compact = CompactNow(w, h, pixels, run, next);
    const size_t written = static_cast<size_t>(pixels) * (compact < pixels ? kRawPixelBytes : 3);
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation, Rewrite(run, written));
    if (fseek(file.get(), kHeaderSize, SEEK_SET) != 0 ||
        !ReadPixels(file.get(), header.get() + kHeaderSize, pixels, compact, buffer,
                    run == nullptr)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Failed to read file : %s.",
                   path);
        return 0;
    }
    if (run != nullptr) {
        run->rawFrom = compact;
        run->rawTo = pixels;
    }
    *width = w;
    *height = h;
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagProcessData, kOperation, "output width %d, height %d\n", w, h);
    return pixels;
}

void FinishThumbnail(RunBuffer* run) {
    if (run == nullptr) {
        return;
    }
    // In place, ascending, in pieces whose raw bytes lie wholly behind where they are written:
    // pixels [i, i + n) with 3 (i + n) <= 4 i, so each piece may be a third longer than the last.
    for (int64_t i = run->rawFrom; i < run->rawTo;) {
        const int64_t count = std::min(run->rawTo - i, i / 3);
        DropFourthBytes(run->data + i * kRawPixelBytes, count, run->data + i * 3);
        i += count;
    }
    run->rawFrom = run->rawTo;
}

long long IqaProcessData::ThumbnailDecoder(const char* path, unsigned char* buffer,
                                           unsigned long long bufferSize, int* width, int* height) {
    return DecodeThumbnailFile(path, buffer, bufferSize, nullptr, nullptr, width, height);
}

}  // namespace IQA
