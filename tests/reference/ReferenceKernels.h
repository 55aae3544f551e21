// Plain, obviously-correct forms of the image kernels, written straight from their definitions;
// the shipped fast forms must match them byte for byte and bit for bit.
#ifndef IQA_TESTS_REFERENCE_KERNELS_H
#define IQA_TESTS_REFERENCE_KERNELS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace iqa_ref {

// k = srcWidth / dstWidth; every output byte the floor of the mean of its k x k block; source
// rows at or past srcRows read as 0.
void DownScale(const unsigned char* src, int srcWidth, int64_t srcRows, unsigned char* dst,
               int dstWidth, int dstHeight);

// The whole image reduced: DownScale with the image's own rows.
std::vector<unsigned char> Reduced(const std::vector<unsigned char>& rgb, int srcWidth,
                                   int dstWidth, int dstHeight);

// Two-pass block SSIM in double, in the written order.
double Ssim(const unsigned char* a, const unsigned char* b, int width, int height);

// Per-pixel NV12 conversion; chroma rows of 2 * ceil(w / 2) bytes.
std::vector<unsigned char> Nv12(const unsigned char* rgb, int width, int height);

// RGBX -> RGB.
std::vector<unsigned char> DropFourthByte(const std::vector<unsigned char>& rgbx);

}  // namespace iqa_ref

#endif  // IQA_TESTS_REFERENCE_KERNELS_H
