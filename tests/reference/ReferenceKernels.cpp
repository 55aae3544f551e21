// Reference kernels: direct loops over the definitions, no tricks.
#include "tests/reference/ReferenceKernels.h"

namespace iqa_ref {

void DownScale(const unsigned char* src, int srcWidth, int64_t srcRows, unsigned char* dst,
               int dstWidth, int dstHeight) {
    const int k = srcWidth / dstWidth;
    for (int y = 0; y < dstHeight; ++y) {
        for (int x = 0; x < dstWidth; ++x) {
            for (int c = 0; c < 3; ++c) {
                uint64_t sum = 0;
                for (int dy = 0; dy < k; ++dy) {
                    for (int dx = 0; dx < k; ++dx) {
                        const int64_t row = static_cast<int64_t>(y) * k + dy;
                        const int64_t col = static_cast<int64_t>(x) * k + dx;
                        if (row < srcRows) {
                            sum += src[(row * srcWidth + col) * 3 + c];
                        }
                    }
                }
                const uint64_t area = static_cast<uint64_t>(k) * static_cast<uint64_t>(k);
                dst[(static_cast<int64_t>(y) * dstWidth + x) * 3 + c] =
                    k < 1 ? 0 : static_cast<unsigned char>(sum / area);
            }
        }
    }
}

std::vector<unsigned char> Reduced(const std::vector<unsigned char>& rgb, int srcWidth,
                                   int dstWidth, int dstHeight) {
    std::vector<unsigned char> out(static_cast<size_t>(dstWidth) * dstHeight * 3);
    DownScale(rgb.data(), srcWidth, static_cast<int64_t>(rgb.size() / 3 / srcWidth), out.data(),
              dstWidth, dstHeight);
    return out;
}

double Ssim(const unsigned char* a, const unsigned char* b, int width, int height) {
    const double c1 = 6.5025, c2 = 58.5225;
    const int blocks = (width / 8) * (height / 8);
    if (blocks == 0) {
        return 0.0;
    }
    double total = 0.0;
    for (int y0 = 0; y0 + 8 <= height; y0 += 8) {
        for (int x0 = 0; x0 + 8 <= width; x0 += 8) {
            double sa = 0, sb = 0;
            for (int y = y0; y < y0 + 8; ++y) {
                for (int x = x0; x < x0 + 8; ++x) {
                    sa += a[y * width + x];
                    sb += b[y * width + x];
                }
            }
            const double ma = sa * 0.015625, mb = sb * 0.015625;
            double va = 0, vb = 0, cov = 0;
            for (int y = y0; y < y0 + 8; ++y) {
                for (int x = x0; x < x0 + 8; ++x) {
                    const double da = a[y * width + x] - ma, db = b[y * width + x] - mb;
                    va += da * da;
                    vb += db * db;
                    cov += da * db;
                }
            }
            va /= 63;
            vb /= 63;
            cov /= 63;
            const double d = (ma * ma + mb * mb + c1) * (va + vb + c2);
            total += ((2 * ma * mb + c1) * (2 * cov + c2)) / d;
        }
    }
    return total / blocks;
}

std::vector<unsigned char> Nv12(const unsigned char* rgb, int width, int height) {
    const int chromaRow = 2 * ((width + 1) / 2);
    std::vector<unsigned char> out(static_cast<size_t>(width) * height +
                                   static_cast<size_t>(chromaRow) * ((height + 1) / 2));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const float r = rgb[(y * width + x) * 3];
            const float g = rgb[(y * width + x) * 3 + 1];
            const float b = rgb[(y * width + x) * 3 + 2];
            const float yf = g * 0.504f + r * 0.257f + b * 0.098f;
            out[y * width + x] = static_cast<unsigned char>(static_cast<int>(yf) + 16);
            if (x % 2 == 0 && y % 2 == 0) {
                const float u = g * -0.291f + r * -0.148f + b * 0.439f;
                const float v = g * -0.368f + r * 0.439f + b * -0.071f;
                const size_t at = static_cast<size_t>(width) * height +
                                  static_cast<size_t>(y / 2) * chromaRow + x;
                out[at] = static_cast<unsigned char>((static_cast<int>(u) + 128) % 256);
                out[at + 1] = static_cast<unsigned char>((static_cast<int>(v) + 128) % 256);
            }
        }
    }
    return out;
}

std::vector<unsigned char> DropFourthByte(const std::vector<unsigned char>& rgbx) {
    std::vector<unsigned char> rgb;
    for (size_t i = 0; i + 3 < rgbx.size(); i += 4) {
        rgb.insert(rgb.end(), rgbx.begin() + i, rgbx.begin() + i + 3);
    }
    return rgb;
}

}  // namespace iqa_ref
