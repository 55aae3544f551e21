// RGB to NV12 conversion and the NV12 plane sizes, including odd widths and heights.
#ifndef IQA_PROCESS_NV12_H
#define IQA_PROCESS_NV12_H

#include <cstdint>

namespace IQA {

// Bytes of one chroma row: a (U, V) pair for every started pair of columns.
inline int64_t Nv12ChromaRowBytes(int64_t width) {
    return 2 * ((width + 1) / 2);
}

// Whole NV12 image: the luma plane, then ceil(height / 2) chroma rows. For even sizes this is
// width x height x 3 / 2.
inline int64_t Nv12Size(int64_t width, int64_t height) {
    return width * height + Nv12ChromaRowBytes(width) * ((height + 1) / 2);
}

// Converts width x height RGB pixels; sizes below 1 convert nothing.
void RgbToNv12(const unsigned char* rgb, int width, int height, unsigned char* nv12);

}  // namespace IQA

#endif  // IQA_PROCESS_NV12_H
