// Box reduction in passes over contiguous data, so that compilers vectorise every one of them
// on x86-64 and arm64: the k rows of a block are summed column by column into 16-bit sums (up to
// four rows a pass), then each sum gets the sums of the same channel in the k - 1 pixels to its
// right added (a doubling tree for an arbitrary k), and each output pixel takes its block's
// totals and divides. On x86-64 the row kernels are also built for AVX2 and chosen at run time.
#include "process/BoxReduce.h"

#include <algorithm>
#include <cstring>

#include "common/KernelClones.h"
#include "process/PickPixels.h"

namespace IQA {

namespace {

#define IQA_INLINE inline __attribute__((always_inline))

constexpr int kChannels = 3;
// Source pixels summed per pass: the sums stay in L1.
constexpr int kChunkPixels = 1024;
constexpr int kChunkValues = kChunkPixels * kChannels;
// Up to this block side a pixel's total (k * k * 255) fits the 16-bit sums.
constexpr int kMaxNarrowSide = 16;

// Adds N rows (N known to the compiler) to the sums, or starts them from those rows.
template <int N>
IQA_INLINE void AddRows(const unsigned char* first, size_t stride, int count, bool start,
                        uint16_t* sums) {
    const unsigned char* row[N];
    for (int r = 0; r < N; ++r) {
        row[r] = first + stride * static_cast<size_t>(r);
    }
    const auto add = [&](int i, uint16_t total) {
        for (int r = 0; r < N; ++r) {
            total = static_cast<uint16_t>(total + row[r][i]);
        }
        return total;
    };
    if (start) {  // two loops, so that neither carries a test
        for (int i = 0; i < count; ++i) {
            sums[i] = add(i, 0);
        }
    } else {
        for (int i = 0; i < count; ++i) {
            sums[i] = add(i, sums[i]);
        }
    }
}

// sums[i] = the column sum of bytes i of the block's `rows` (at least one) rows; each sum is
// loaded and stored once per four rows.
IQA_INLINE void SumColumns(const unsigned char* first, size_t stride, int64_t rows, int count,
                           uint16_t* sums) {
    for (int64_t r = 0; r < rows; r += 4) {
        const unsigned char* from = first + stride * static_cast<size_t>(r);
        switch (std::min<int64_t>(4, rows - r)) {
            case 1:
                AddRows<1>(from, stride, count, r == 0, sums);
                break;
            case 2:
                AddRows<2>(from, stride, count, r == 0, sums);
                break;
            case 3:
                AddRows<3>(from, stride, count, r == 0, sums);
                break;
            default:
                AddRows<4>(from, stride, count, r == 0, sums);
                break;
        }
    }
}

// The camera's usual block sides, known to the compiler: the totals and the division by the
// constant area run on whole vectors; each pixel then takes its block's three values.
template <int K>
IQA_INLINE void FinishFixed(const uint16_t* sums, int pixels, unsigned char* out) {
    constexpr int kStep = K * kChannels;
    unsigned char totals[kChunkValues];
    const int count = (pixels - 1) * kStep + kChannels;  // the last value any pixel takes
    for (int i = 0; i < count; ++i) {
        uint16_t total = sums[i];
        for (int j = 1; j < K; ++j) {
            total = static_cast<uint16_t>(total + sums[i + j * kChannels]);
        }
        totals[i] = static_cast<unsigned char>(total / (K * K));
    }
    PickPixels<K>(totals, pixels, count, out);
}

// Exact division by the block area without a divide instruction (Granlund-Montgomery): for
// every n < 2^16, n / area == (n * m) >> (16 + l) with l = ceil(log2 area) and
// m = ceil(2^(16 + l) / area).
struct AreaDivider {
    explicit AreaDivider(uint32_t area) {
        int l = 0;
        while ((uint32_t{1} << l) < area) {
            ++l;
        }
        shift = 16 + l;
        multiplier = ((uint64_t{1} << shift) + area - 1) / area;
    }
    unsigned char Divide(uint32_t n) const {
        return static_cast<unsigned char>((n * multiplier) >> shift);
    }
    uint64_t multiplier;
    int shift;
};

// Any other side up to kMaxNarrowSide. span[i] holds the sum of `width` pixels' values from i on;
// doubling the width takes one whole-vector pass, and the widths k is made of are added into the
// totals as they appear, so a side of k takes about 2 log2 k passes instead of k.
IQA_INLINE void FinishNarrow(const uint16_t* sums, int k, int pixels, unsigned char* out) {
    const int step = k * kChannels;
    const int count = (pixels - 1) * step + kChannels;
    const int valid = pixels * step;  // values of sums
    uint16_t totals[kChunkValues];
    uint16_t spans[2][kChunkValues];
    const uint16_t* span = sums;
    int width = 1, done = 0, next = 0;
    for (int left = k; left > 0; left >>= 1) {
        if (left & 1) {
            const uint16_t* from = span + done * kChannels;
            if (done == 0) {
                std::copy_n(from, count, totals);
            } else {
                for (int i = 0; i < count; ++i) {
                    totals[i] = static_cast<uint16_t>(totals[i] + from[i]);
                }
            }
            done += width;
        }
        if (left > 1) {
            uint16_t* wider = spans[next];
            next ^= 1;
            // A span of 2 x width pixels starting at i exists while i + 2 x width pixels fit.
            const int reach = valid - (2 * width - 1) * kChannels;
            for (int i = 0; i < reach; ++i) {
                wider[i] = static_cast<uint16_t>(span[i] + span[i + width * kChannels]);
            }
            span = wider;
            width *= 2;
        }
    }
    const AreaDivider divider(static_cast<uint32_t>(k * k));
    for (int p = 0; p < pixels; ++p) {
        for (int c = 0; c < kChannels; ++c) {
            out[p * kChannels + c] = divider.Divide(totals[p * step + c]);
        }
    }
}

template <int K>
IQA_INLINE void ReduceRowFixed(const unsigned char* first, size_t stride, int64_t rows,
                               unsigned char* out, int dstWidth) {
    uint16_t sums[kChunkValues];
    constexpr int kPerChunk = kChunkPixels / K;
    for (int x0 = 0; x0 < dstWidth; x0 += kPerChunk) {
        const int pixels = std::min(kPerChunk, dstWidth - x0);
        SumColumns(first + static_cast<size_t>(x0) * K * kChannels, stride, rows,
                   pixels * K * kChannels, sums);
        FinishFixed<K>(sums, pixels, out + static_cast<size_t>(x0) * kChannels);
    }
}

// One output row from the `rows` source rows at `first` that belong to it.
IQA_KERNEL_CLONES void ReduceRowNarrow(const unsigned char* first, size_t stride, int64_t rows,
                                       int k, unsigned char* out, int dstWidth) {
    switch (k) {
        case 2:
            return ReduceRowFixed<2>(first, stride, rows, out, dstWidth);
        case 3:
            return ReduceRowFixed<3>(first, stride, rows, out, dstWidth);
        case 4:
            return ReduceRowFixed<4>(first, stride, rows, out, dstWidth);
        default:
            break;
    }
    uint16_t sums[kChunkValues];
    const int perChunk = kChunkPixels / k;
    for (int x0 = 0; x0 < dstWidth; x0 += perChunk) {
        const int pixels = std::min(perChunk, dstWidth - x0);
        SumColumns(first + static_cast<size_t>(x0) * static_cast<size_t>(k) * kChannels, stride,
                   rows, pixels * k * kChannels, sums);
        FinishNarrow(sums, k, pixels, out + static_cast<size_t>(x0) * kChannels);
    }
}

// One output row for very large blocks: plain 64-bit sums, no scratch space.
void ReduceRowWide(const unsigned char* first, size_t stride, int64_t rows, int k,
                   unsigned char* out, int dstWidth) {
    const uint64_t area = static_cast<uint64_t>(k) * static_cast<uint64_t>(k);
    for (int x = 0; x < dstWidth; ++x) {
        for (int c = 0; c < kChannels; ++c) {
            uint64_t total = 0;
            for (int64_t r = 0; r < rows; ++r) {
                const unsigned char* p =
                    first + stride * static_cast<size_t>(r) +
                    static_cast<size_t>(x) * static_cast<size_t>(k) * kChannels + c;
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
    BoxReduceRows(src, srcWidth, static_cast<size_t>(srcWidth) * kChannels, srcRows, dst, dstWidth,
                  dstHeight);
}

void BoxReduceRows(const unsigned char* src, int srcWidth, size_t srcStride, int64_t srcRows,
                   unsigned char* dst, int dstWidth, int dstHeight) {
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
        const int64_t rows = std::max<int64_t>(0, std::min<int64_t>(k, srcRows - firstRow));
        unsigned char* out = dst + rowBytes * static_cast<size_t>(y);
        if (rows == 0) {  // past the source: its rows read as zero
            std::memset(out, 0, rowBytes);
            continue;
        }
        const unsigned char* first = src + srcStride * static_cast<size_t>(firstRow);
        if (k <= kMaxNarrowSide) {
            ReduceRowNarrow(first, srcStride, rows, k, out, dstWidth);
        } else {
            ReduceRowWide(first, srcStride, rows, k, out, dstWidth);
        }
    }
}

}  // namespace IQA
