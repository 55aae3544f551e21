// Box reduction: rows of a block are first summed column by column (contiguous, so the
// compiler vectorises it), then each output pixel sums its k columns and divides once.
#include "BoxReduce.h"

#include <algorithm>
#include <cstring>

namespace IQA {

namespace {

constexpr int kChannels = 3;
// Source pixels summed per pass; keeps the column sums on the stack and in L1. Blocks up to
// this side also keep a pixel's total (k * k * 255) far inside 32 bits.
constexpr int kChunkPixels = 1024;

// Adds `count` bytes of one source row to the running column sums.
void AccumulateRow(const unsigned char* row, uint32_t* sums, int count) {
    for (int i = 0; i < count; ++i) {
        sums[i] += row[i];
    }
}

// Exact division by the block area without a divide instruction (Granlund-Montgomery): for
// every n < 2^28, n / area == (n * m) >> (28 + l) with l = ceil(log2 area) and
// m = ceil(2^(28 + l) / area). A pixel's sum is below 1024 * 1024 * 255 < 2^28, and m < 2^29,
// so the product fits in 64 bits and the loop vectorises.
struct AreaDivider {
    explicit AreaDivider(uint32_t area) {
        int l = 0;
        while ((uint64_t{1} << l) < area) {
            ++l;
        }
        shift = 28 + l;
        multiplier = ((uint64_t{1} << shift) + area - 1) / area;
    }
    uint32_t Divide(uint32_t n) const { return static_cast<uint32_t>((n * multiplier) >> shift); }
    uint64_t multiplier;
    int shift;
};

// The camera's usual reductions (k = 2, 3, 4) with the block side known to the compiler, which
// unrolls the sums and divides by the constant area with a multiply.
template <int K>
void FinishPixelsFixed(const uint32_t* sums, int pixels, unsigned char* out) {
    for (int p = 0; p < pixels; ++p) {
        const uint32_t* block = sums + p * K * kChannels;
        for (int c = 0; c < kChannels; ++c) {
            uint32_t total = 0;
            for (int i = 0; i < K; ++i) {
                total += block[i * kChannels + c];
            }
            out[p * kChannels + c] = static_cast<unsigned char>(total / (K * K));
        }
    }
}

// Turns the column sums of `pixels` output pixels into their block means.
void FinishPixels(const uint32_t* sums, int k, int pixels, unsigned char* out) {
    switch (k) {
        case 2:
            return FinishPixelsFixed<2>(sums, pixels, out);
        case 3:
            return FinishPixelsFixed<3>(sums, pixels, out);
        case 4:
            return FinishPixelsFixed<4>(sums, pixels, out);
        default:
            break;
    }
    const AreaDivider divider(static_cast<uint32_t>(k) * static_cast<uint32_t>(k));
    uint32_t totals[kChunkPixels * kChannels];
    std::fill_n(totals, pixels * kChannels, 0u);
    const int stride = k * kChannels;
    for (int i = 0; i < k; ++i) {  // add the block's columns one after the other
        const uint32_t* column = sums + i * kChannels;
        for (int p = 0; p < pixels; ++p) {
            for (int c = 0; c < kChannels; ++c) {
                totals[p * kChannels + c] += column[p * stride + c];
            }
        }
    }
    for (int b = 0; b < pixels * kChannels; ++b) {
        out[b] = static_cast<unsigned char>(divider.Divide(totals[b]));
    }
}

// One output row with k small enough for a chunk of column sums on the stack.
void ReduceRowFast(const unsigned char* src, int srcWidth, int64_t rows, int k, int64_t firstRow,
                   unsigned char* out, int dstWidth) {
    uint32_t sums[kChunkPixels * kChannels];
    const int perChunk = std::max(1, kChunkPixels / k);
    for (int x0 = 0; x0 < dstWidth; x0 += perChunk) {
        const int pixels = std::min(perChunk, dstWidth - x0);
        const int bytes = pixels * k * kChannels;
        std::memset(sums, 0, sizeof(uint32_t) * static_cast<size_t>(bytes));
        const int64_t lastRow = std::min<int64_t>(firstRow + k, rows);
        for (int64_t r = firstRow; r < lastRow; ++r) {
            const size_t offset = (static_cast<size_t>(r) * static_cast<size_t>(srcWidth) +
                                   static_cast<size_t>(x0) * static_cast<size_t>(k)) *
                                  kChannels;
            AccumulateRow(src + offset, sums, bytes);
        }
        FinishPixels(sums, k, pixels, out + static_cast<size_t>(x0) * kChannels);
    }
}

// One output row for very large blocks: plain 64-bit sums, no scratch space.
void ReduceRowWide(const unsigned char* src, int srcWidth, int64_t rows, int k, int64_t firstRow,
                   unsigned char* out, int dstWidth) {
    const uint64_t area = static_cast<uint64_t>(k) * static_cast<uint64_t>(k);
    const int64_t lastRow = std::min<int64_t>(firstRow + k, rows);
    for (int x = 0; x < dstWidth; ++x) {
        for (int c = 0; c < kChannels; ++c) {
            uint64_t total = 0;
            for (int64_t r = firstRow; r < lastRow; ++r) {
                const unsigned char* p = src +
                                         (static_cast<size_t>(r) * static_cast<size_t>(srcWidth) +
                                          static_cast<size_t>(x) * static_cast<size_t>(k)) *
                                             kChannels +
                                         c;
                for (int i = 0; i < k; ++i) {
                    total += p[static_cast<size_t>(i) * kChannels];
                }
            }
            out[static_cast<size_t>(x) * kChannels + c] = static_cast<unsigned char>(total / area);
        }
    }
}

}  // namespace

void BoxReduce(const unsigned char* src, int srcWidth, int64_t srcRows, unsigned char* dst,
               int dstWidth, int dstHeight) {
    if (dstWidth < 1 || dstHeight < 1) {
        return;
    }
    const int k = srcWidth / dstWidth;
    const size_t rowBytes = static_cast<size_t>(dstWidth) * kChannels;
    if (k < 1) {
        std::memset(dst, 0, rowBytes * static_cast<size_t>(dstHeight));
        return;
    }
    for (int y = 0; y < dstHeight; ++y) {
        const int64_t firstRow = static_cast<int64_t>(y) * k;
        unsigned char* out = dst + rowBytes * static_cast<size_t>(y);
        if (k <= kChunkPixels) {
            ReduceRowFast(src, srcWidth, srcRows, k, firstRow, out, dstWidth);
        } else {
            ReduceRowWide(src, srcWidth, srcRows, k, firstRow, out, dstWidth);
        }
    }
}

}  // namespace IQA
