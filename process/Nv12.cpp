// RGB to NV12 with the camera's BT.601 studio-range coefficients, in single precision and in the
// written order (products rounded before they are added; the build forbids contraction).
#include "process/Nv12.h"

namespace IQA {

namespace {

inline unsigned char Luma(float r, float g, float b) {
    return static_cast<unsigned char>(static_cast<int>(g * 0.504f + r * 0.257f + b * 0.098f) + 16);
}

inline unsigned char ChromaU(float r, float g, float b) {
    return static_cast<unsigned char>(static_cast<int>(g * -0.291f + r * -0.148f + b * 0.439f) +
                                      128);
}

inline unsigned char ChromaV(float r, float g, float b) {
    return static_cast<unsigned char>(static_cast<int>(g * -0.368f + r * 0.439f + b * -0.071f) +
                                      128);
}

void LumaRow(const unsigned char* rgb, int width, unsigned char* out) {
    for (int x = 0; x < width; ++x) {
        out[x] = Luma(rgb[3 * x], rgb[3 * x + 1], rgb[3 * x + 2]);
    }
}

// Chroma of the top-left pixel of every 2 x 2 block in this (even) row.
void ChromaRow(const unsigned char* rgb, int width, unsigned char* out) {
    for (int x = 0; x < width; x += 2) {
        const float r = rgb[3 * x], g = rgb[3 * x + 1], b = rgb[3 * x + 2];
        out[x] = ChromaU(r, g, b);
        out[x + 1] = ChromaV(r, g, b);
    }
}

}  // namespace

void RgbToNv12(const unsigned char* rgb, int width, int height, unsigned char* nv12) {
    if (width < 1 || height < 1) {
        return;
    }
    const int64_t w = width;
    unsigned char* chroma = nv12 + w * height;
    const int64_t chromaRow = Nv12ChromaRowBytes(w);
    for (int64_t y = 0; y < height; ++y) {
        const unsigned char* row = rgb + 3 * w * y;
        LumaRow(row, width, nv12 + w * y);
        if (y % 2 == 0) {
            ChromaRow(row, width, chroma + chromaRow * (y / 2));
        }
    }
}

}  // namespace IQA
