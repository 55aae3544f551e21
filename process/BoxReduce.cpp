// Box reduction in passes over contiguous data, so that compilers vectorise every one of them
// on x86-64 and arm64: the k rows of a block are summed column by column into 16-bit sums, kept
// in registers over the rows and split by column parity (two neighbouring bytes load as one
// 16-bit lane, and a mask and a shift take them apart, so no widening shuffle is needed); then
// each sum gets the sums of the same channel in the k - 1 pixels to its right added (a doubling
// tree for an arbitrary k), and each output pixel takes its block's totals and divides. On x86-64
// the row kernels are also built for AVX2 and chosen at run time.
#include "process/BoxReduce.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

#include "common/KernelClones.h"
#include "process/PickPixels.h"

namespace IQA {

namespace {

#define IQA_INLINE inline __attribute__((always_inline))

static_assert(
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
    "a 16-bit lane's low byte is the even column, and packed totals store low byte first");

constexpr int kChannels = 3;
// Source pixels summed per pass: the sums stay in L1.
constexpr int kChunkPixels = 1024;
constexpr int kChunkValues = kChunkPixels * kChannels;
constexpr int kChunkPairs = kChunkValues / 2;
// Zeroed sums behind a chunk's own: the fixed sides compute totals in pairs, and the pair past the
// last value any pixel takes reads up to here.
constexpr int kPairsPad = 8;
// Up to this block side a pixel's total (k * k * 255) fits the 16-bit sums.
constexpr int kMaxNarrowSide = 16;

using Lanes16 = uint16_t __attribute__((vector_size(32)));
constexpr int kLaneBytes = static_cast<int>(sizeof(Lanes16));

// Column sums by parity: even[m] belongs to byte 2m of a row, odd[m] to byte 2m + 1.
struct Split {
    uint16_t* even;
    uint16_t* odd;
};

// The sums of `count` bytes of N rows (N known to the compiler), 32 bytes a step with the sums in
// registers, then pair by pair; an odd count leaves the last odd sum 0.
template <int N>
IQA_INLINE void SumPairsOf(const unsigned char* first, size_t stride, int count, Split out) {
    int m = 0;
    for (; 2 * m + kLaneBytes <= count; m += kLaneBytes / 2) {
        // The lanes are added whole (the low bytes carry into the high ones) and the high bytes on
        // their own, one operation less a row than splitting every row; the low bytes' sum is
        // then whole - 256 odd, exactly, since it stays below 2^16.
        const unsigned char* row = first + 2 * m;
        Lanes16 whole = {}, odd = {};
#pragma GCC unroll 16
        for (int r = 0; r < N; ++r, row += stride) {
            Lanes16 v;
            std::memcpy(&v, row, sizeof v);
            whole += v;
            odd += v >> 8;
        }
        const Lanes16 even = whole - (odd << 8);
        std::memcpy(out.even + m, &even, sizeof even);
        std::memcpy(out.odd + m, &odd, sizeof odd);
    }
    for (; 2 * m < count; ++m) {
        const bool paired = 2 * m + 1 < count;
        uint16_t even = 0, odd = 0;
        for (int r = 0; r < N; ++r) {
            const unsigned char* pair = first + stride * static_cast<size_t>(r) + 2 * m;
            even = static_cast<uint16_t>(even + pair[0]);
            odd = static_cast<uint16_t>(odd + (paired ? pair[1] : 0));
        }
        out.even[m] = even;
        out.odd[m] = odd;
    }
}

// The column sums of a block's `rows` rows, 1 to N.
template <int N>
IQA_INLINE void SumPairs(const unsigned char* first, size_t stride, int64_t rows, int count,
                         Split out) {
    if constexpr (N > 1) {
        if (rows < N) {
            return SumPairs<N - 1>(first, stride, rows, count, out);
        }
    }
    SumPairsOf<N>(first, stride, count, out);
}

// Term j of the block total at 2m + parity: the column sum at 2m + parity + 3j, in the even or the
// odd array as that position is.
template <int Parity, int J>
IQA_INLINE uint16_t Term(Split sums, int m) {
    constexpr int kAt = Parity + 3 * J;
    return (kAt % 2 == 0 ? sums.even : sums.odd)[m + kAt / 2];
}

template <int Parity, int... J>
IQA_INLINE uint16_t TotalAt(Split sums, int m, std::integer_sequence<int, J...>) {
    return static_cast<uint16_t>((Term<Parity, J>(sums, m) + ...));
}

// total / K^2 as the high half of one 16-bit multiplication, with no shift after it. With d = K^2
// and m = 2^16 / d + 1 = (2^16 + e) / d, 0 < e <= d, n m / 2^16 is n / d plus n e / (d 2^16),
// which stays below 1 / d for every block total n <= 255 d since 255 d^2 < 2^16 (d <= 16); so the
// quotient is exact.
template <int K>
IQA_INLINE uint16_t DivideByArea(uint16_t total) {
    constexpr uint32_t kMultiplier = (uint32_t{1} << 16) / (K * K) + 1;
    return static_cast<uint16_t>((uint32_t{total} * kMultiplier) >> 16);
}

// The camera's usual block sides, known to the compiler: the totals, two neighbouring ones a step,
// and the division by the constant area run on whole vectors, and each step stores its two
// quotients as the bytes they are in the row; each pixel then takes its block's three values.
template <int K>
IQA_INLINE void FinishFixed(Split sums, int pixels, unsigned char* out) {
    constexpr auto kTerms = std::make_integer_sequence<int, K>();
    const int count = (pixels - 1) * K * kChannels + kChannels;  // the last value a pixel takes
    uint16_t totals[kChunkPairs];
    for (int m = 0; m < (count + 1) / 2; ++m) {
        totals[m] = static_cast<uint16_t>(DivideByArea<K>(TotalAt<0>(sums, m, kTerms)) |
                                          DivideByArea<K>(TotalAt<1>(sums, m, kTerms)) << 8);
    }
    PickPixels<K>(reinterpret_cast<const unsigned char*>(totals), pixels, count, out);
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

// out[m] = base[m] + in[m] for m < n; a null base adds nothing.
IQA_INLINE void AddArrays(uint16_t* out, const uint16_t* base, const uint16_t* in, int n) {
    if (base == nullptr) {
        std::copy_n(in, n, out);
        return;
    }
    for (int m = 0; m < n; ++m) {
        out[m] = static_cast<uint16_t>(base[m] + in[m]);
    }
}

// dst[i] = base[i] + from[i + shift] for the first n values of split arrays (base: null or dst
// itself or apart from both).
IQA_INLINE void AddShifted(Split dst, const Split* base, Split from, int shift, int n) {
    const int half = shift / 2;
    const bool even = shift % 2 == 0;
    // The sums at 2m + shift and at 2m + 1 + shift.
    AddArrays(dst.even, base != nullptr ? base->even : nullptr,
              even ? from.even + half : from.odd + half, (n + 1) / 2);
    AddArrays(dst.odd, base != nullptr ? base->odd : nullptr,
              even ? from.odd + half : from.even + half + 1, n / 2);
}

// Any other side up to kMaxNarrowSide. span[i] holds the sum of `width` pixels' values from i on;
// doubling the width takes one whole-vector pass, and the widths k is made of are added into the
// totals as they appear, so a side of k takes about 2 log2 k passes instead of k.
IQA_INLINE void FinishNarrow(Split sums, int k, int pixels, unsigned char* out) {
    const int step = k * kChannels;
    const int count = (pixels - 1) * step + kChannels;
    const int valid = pixels * step;  // values of sums
    uint16_t totals[2][kChunkPairs], spans[2][2][kChunkPairs];
    const Split total = {totals[0], totals[1]};
    Split span = sums;
    int width = 1, done = 0, next = 0;
    for (int left = k; left > 0; left >>= 1) {
        if (left & 1) {
            AddShifted(total, done != 0 ? &total : nullptr, span, done * kChannels, count);
            done += width;
        }
        if (left > 1) {
            const Split wider = {spans[next][0], spans[next][1]};
            next ^= 1;
            // A span of 2 x width pixels starting at i exists while i + 2 x width pixels fit.
            const int reach = valid - (2 * width - 1) * kChannels;
            AddShifted(wider, &span, span, width * kChannels, reach);
            span = wider;
            width *= 2;
        }
    }
    const AreaDivider divider(static_cast<uint32_t>(k * k));
    for (int p = 0; p < pixels; ++p) {
        // A pixel's three totals at 2h + parity: the first and third in one array, the second in
        // the other.
        const unsigned at = static_cast<unsigned>(p * step), half = at / 2;
        const uint16_t* outer = at % 2 == 0 ? totals[0] : totals[1];
        const uint16_t* middle = at % 2 == 0 ? totals[1] : totals[0] + 1;
        out[p * kChannels] = divider.Divide(outer[half]);
        out[p * kChannels + 1] = divider.Divide(middle[half]);
        out[p * kChannels + 2] = divider.Divide(outer[half + 1]);
    }
}

// Output pixels a chunk takes: as many as fit kChunkPixels source pixels, rounded down so that
// its bytes are whole 32-byte steps of the column sums.
int ChunkPixels(int k) {
    const int multiple = kLaneBytes / std::gcd(k * kChannels, kLaneBytes);
    return kChunkPixels / k / multiple * multiple;
}

// One output row from the `rows` source rows (at most MaxRows) at `first` that belong to it,
// chunk by chunk.
template <int MaxRows, typename Finish>
IQA_INLINE void ReduceRow(const unsigned char* first, size_t stride, int64_t rows, int k,
                          unsigned char* out, int dstWidth, Finish finish) {
    uint16_t even[kChunkPairs + kPairsPad], odd[kChunkPairs + kPairsPad];
    const Split sums = {even, odd};
    const int perChunk = ChunkPixels(k);
    for (int x0 = 0; x0 < dstWidth; x0 += perChunk) {
        const int pixels = std::min(perChunk, dstWidth - x0);
        const int count = pixels * k * kChannels;
        SumPairs<MaxRows>(first + static_cast<size_t>(x0) * static_cast<size_t>(k) * kChannels,
                          stride, rows, count, sums);
        // Pairs behind this chunk's may hold the previous chunk's sums.
        std::fill_n(even + (count + 1) / 2, kPairsPad, 0);
        std::fill_n(odd + (count + 1) / 2, kPairsPad, 0);
        finish(sums, pixels, out + static_cast<size_t>(x0) * kChannels);
    }
}

IQA_KERNEL_CLONES void ReduceRowNarrow(const unsigned char* first, size_t stride, int64_t rows,
                                       int k, unsigned char* out, int dstWidth) {
    switch (k) {
        case 2:
            return ReduceRow<2>(first, stride, rows, k, out, dstWidth, FinishFixed<2>);
        case 3:
            return ReduceRow<3>(first, stride, rows, k, out, dstWidth, FinishFixed<3>);
        case 4:
            return ReduceRow<4>(first, stride, rows, k, out, dstWidth, FinishFixed<4>);
        default:
            return ReduceRow<kMaxNarrowSide>(first, stride, rows, k, out, dstWidth,
                                             [k](Split sums, int pixels, unsigned char* to) {
                                                 FinishNarrow(sums, k, pixels, to);
                                             });
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
