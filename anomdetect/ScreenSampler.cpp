// Random-square sampling of a YUV 4:2:0 frame. All sizes are widened to 64 bits so that no
// width, height or stride can wrap a remainder to zero or an index past the frame.
#include "anomdetect/ScreenSampler.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "common/IqaLog.h"

namespace IQA {

namespace {

struct Frame {
    const unsigned char* buffer;
    uint64_t width;
    uint64_t height;
    int64_t stride;
    unsigned char chroma;
};

struct Square {
    uint64_t left;
    uint64_t top;
    uint64_t side;
};

enum class Scan { kDecided, kUndecided, kOutside };

// The position guard: columns and rows past the frame, and anything that would be negative as
// a signed 32-bit value (or a negative stride), end the check.
bool Inside(const Frame& f, const Square& s, uint64_t x, uint64_t y) {
    return x <= f.width && y <= f.height && static_cast<int32_t>(s.left) >= 0 &&
           static_cast<int32_t>(y) >= 0 && f.stride >= 0;
}

bool Matches(const Frame& f, uint64_t x, uint64_t y) {
    const uint64_t stride = static_cast<uint64_t>(f.stride);
    const uint64_t chromaAt = stride * f.height + (y / 2) * (f.width & ~1ULL) + (x & ~1ULL);
    return f.buffer[y * stride + x] == 0 && f.buffer[chromaAt] == f.chroma &&
           f.buffer[chromaAt + 1] == f.chroma;
}

Scan ScanSquare(const Frame& f, const Square& s, uint64_t threshold, uint64_t* matches) {
    for (uint64_t y = s.top; y < s.top + s.side; ++y) {
        for (uint64_t x = s.left; x < s.left + s.side; ++x) {
            if (!Inside(f, s, x, y)) {
                return Scan::kOutside;
            }
            if (Matches(f, x, y)) {
                if (*matches >= threshold) {
                    return Scan::kDecided;
                }
                ++*matches;
            }
        }
    }
    return Scan::kUndecided;
}

}  // namespace

bool SampleScreen(const unsigned char* buffer, unsigned int width, unsigned int height, int stride,
                  unsigned char chroma, const char* operation) {
    if (buffer == nullptr) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagAnomDetect, operation, "get buffer failed!");
        return false;
    }
    const uint64_t half = width / 2;
    const uint64_t side = std::min<uint64_t>(half, height / 2);
    const uint64_t threshold = side * side / 2;
    const uint64_t columns = half - side + 1;
    const uint64_t rows = static_cast<uint64_t>(height) - side + 1;
    const uint64_t x1 = static_cast<unsigned>(rand()) % columns;
    const uint64_t y1 = static_cast<unsigned>(rand()) % rows;
    const uint64_t x2 = static_cast<unsigned>(rand()) % columns;
    const uint64_t y2 = static_cast<unsigned>(rand()) % rows;
    const Frame frame{buffer, width, height, stride, chroma};
    uint64_t matches = 0;
    for (const Square& square : {Square{x1, y1, side}, Square{half + x2, y2, side}}) {
        switch (ScanSquare(frame, square, threshold, &matches)) {
            case Scan::kDecided:
                return true;
            case Scan::kOutside:
                IQA_LOG_OP(ANDROID_LOG_ERROR, kTagAnomDetect, operation, "get size error!");
                return false;
            case Scan::kUndecided:
                break;
        }
    }
    return false;
}

}  // namespace IQA
