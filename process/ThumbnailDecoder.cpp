// The camera's raw thumbnail: a 16-byte header, then 4 bytes a pixel (R, G, B, unused).
#include <cstdint>

#include "IqaLog.h"
#include "IqaProcessData.h"
#include "MallocBlock.h"
#include "ResolvedPath.h"
#include "ScopedFile.h"
#include "WrittenExtent.h"

namespace IQA {

namespace {

constexpr size_t kHeaderSize = 16;
constexpr int kRawPixelBytes = 4;

int32_t ReadLittleEndian32(const unsigned char* p) {
    return static_cast<int32_t>(static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                                static_cast<uint32_t>(p[2]) << 16 |
                                static_cast<uint32_t>(p[3]) << 24);
}

// Drops every fourth byte, in place. Ascending order is safe: pixel i is written to 3i, which
// never lies beyond the bytes of pixel i still to be read at 4i.
void CompactRgbx(unsigned char* buffer, int64_t pixels) {
    for (int64_t i = 0; i < pixels; ++i) {
        buffer[3 * i] = buffer[4 * i];
        buffer[3 * i + 1] = buffer[4 * i + 1];
        buffer[3 * i + 2] = buffer[4 * i + 2];
    }
}

// True when 4 x pixels raw bytes fit the capacity; a negative count never does. Written so
// that no header value can overflow the comparison.
bool RawPixelsFit(int64_t pixels, unsigned long long bufferSize) {
    return pixels >= 0 && static_cast<unsigned long long>(pixels) <= bufferSize / kRawPixelBytes;
}

}  // namespace

long long IqaProcessData::ThumbnailDecoder(const char* path, unsigned char* buffer,
                                           unsigned long long bufferSize, int* width, int* height) {
    const ResolvedPath resolved(path);
    if (!resolved.ok) {
        IQA_LOGE(kTagProcessData, "Failed to resolve path%s.", resolved.path);
        return 0;
    }
    ScopedFile file(resolved.path);
    if (!file) {
        IQA_LOGE(kTagProcessData, "can't open %s.", resolved.path);
        return 0;
    }
    MallocBlock header(kHeaderSize, MallocBlock::Fill::kNone);
    if (!header || fread(header.get(), 1, kHeaderSize, file.get()) != kHeaderSize) {
        IQA_LOGE(kTagProcessData, "Failed to read file header: %s.", path);
        return 0;
    }
    const int32_t w = ReadLittleEndian32(header.get() + 8);
    const int32_t h = ReadLittleEndian32(header.get() + 12);
    const int64_t pixels = static_cast<int64_t>(w) * h;
    if (!RawPixelsFit(pixels, bufferSize)) {
        IQA_LOGE(kTagProcessData, "buffer size too small!");
        return 0;
    }
    const size_t needed = static_cast<size_t>(pixels) * kRawPixelBytes;
    WrittenExtent::NoteWritten(buffer, needed);
    if (fseek(file.get(), kHeaderSize, SEEK_SET) != 0 ||
        fread(buffer, 1, needed, file.get()) != needed) {
        IQA_LOGE(kTagProcessData, "Failed to read file : %s.", path);
        return 0;
    }
    CompactRgbx(buffer, pixels);
    *width = w;
    *height = h;
    IQA_LOGI(kTagProcessData, "output width %d, height %d\n", w, h);
    return pixels;
}

}  // namespace IQA
