// The camera's raw thumbnail: a 16-byte header, then 4 bytes a pixel (R, G, B, unused).
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "IqaProcessData.h"
#include "common/FileCalls.h"
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

// Reads raw pixels [from, to) block by block, the file standing at pixel `from`, and writes them
// compacted at 3 x their index. The raw bytes of a block at or behind `keepFrom` also stand in
// place at 4 x their index: a whole read compacted in place leaves the last quarter of them behind
// the image.
bool ReadPixels(FILE* file, unsigned char* block, int64_t from, int64_t to, unsigned char* buffer,
                size_t keepFrom) {
    for (int64_t first = from; first < to;) {
        const int64_t count = std::min<int64_t>(kBlockPixels, to - first);
        const size_t bytes = static_cast<size_t>(count) * kRawPixelBytes;
        if (fread(block, 1, bytes, file) != bytes) {
            return false;
        }
        DropFourthBytes(block, count, buffer + static_cast<size_t>(first) * 3);
        const size_t at = static_cast<size_t>(first) * kRawPixelBytes;
        if (at + bytes > keepFrom) {
            const size_t skip = keepFrom > at ? keepFrom - at : 0;
            std::memcpy(buffer + at + skip, block + skip, bytes - skip);
        }
        first += count;
    }
    return true;
}

// Pixels to compact at once in a run's buffer: those holding the bytes the next stage reads.
int64_t CompactNow(int32_t w, int32_t h, int64_t pixels, const RunBuffer* run, ReadExtent next) {
    if (run == nullptr || next == nullptr) {
        return pixels;
    }
    return std::min(pixels, static_cast<int64_t>((next(w, h) + 2) / 3));
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
        run->tail = RunBuffer::Tail{};
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
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation, Rewrite(run, static_cast<size_t>(compact) * 3));
    unsigned char* block = header.get() + kHeaderSize;
    const size_t keepFrom = run == nullptr ? static_cast<size_t>(pixels) * 3 : SIZE_MAX;
    if (fseek(file.get(), kHeaderSize, SEEK_SET) != 0 ||
        !ReadPixels(file.get(), block, 0, compact, buffer, keepFrom) ||
        !ReadThrough(fileno(file.get()),
                     kHeaderSize + static_cast<uint64_t>(compact) * kRawPixelBytes,
                     static_cast<uint64_t>(pixels - compact) * kRawPixelBytes, block,
                     kBlockPixels * kRawPixelBytes)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Failed to read file : %s.",
                   path);
        return 0;
    }
    if (compact < pixels) {  // only in a run's buffer
        run->tail = RunBuffer::Tail{std::move(file), path, compact, pixels};
    }
    *width = w;
    *height = h;
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagProcessData, kOperation, "output width %d, height %d\n", w, h);
    return pixels;
}

bool FinishThumbnail(RunBuffer* run) {
    if (run == nullptr || run->tail.from >= run->tail.to) {
        return true;
    }
    const RunBuffer::Tail tail = std::move(run->tail);  // closes its file on the way out
    run->tail = RunBuffer::Tail{};
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation, Rewrite(run, static_cast<size_t>(tail.to) * 3));
    MallocBlock block(kBlockPixels * kRawPixelBytes);
    if (!block ||
        fseek(tail.file.get(), static_cast<long>(kHeaderSize + tail.from * kRawPixelBytes),
              SEEK_SET) != 0 ||
        !ReadPixels(tail.file.get(), block.get(), tail.from, tail.to, run->data, SIZE_MAX)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Failed to read file : %s.",
                   tail.path.c_str());
        return false;
    }
    return true;
}

long long IqaProcessData::ThumbnailDecoder(const char* path, unsigned char* buffer,
                                           unsigned long long bufferSize, int* width, int* height) {
    return DecodeThumbnailFile(path, buffer, bufferSize, nullptr, nullptr, width, height);
}

}  // namespace IQA
