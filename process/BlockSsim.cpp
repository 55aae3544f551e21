// Block SSIM. Per block the sums of bytes, squares and cross products are exact integers; the
// deviation sums derived from them in double equal, bit for bit, the two-pass sums of
// (a - mean)^2 and (a - mean)(b - mean), since every intermediate is a multiple of 1/64 that
// double holds exactly. The final expression keeps its written order. Every pass runs over
// whole arrays, so that compilers vectorise all of them on x86-64 and arm64.
#include "process/BlockSsim.h"

#include "common/KernelClones.h"

namespace IQA {

namespace {

constexpr double kC1 = 6.5025;   // (0.01 * 255)^2
constexpr double kC2 = 58.5225;  // (0.03 * 255)^2
constexpr int kBandColumns = kBandBlocks * kSsimBlock;

// Sum over the block of (a - meanA)(b - meanB), exactly: sumAB - sumA * sumB / 64.
double DeviationProduct(int32_t sumAB, int32_t sumA, int32_t sumB) {
    return static_cast<double>(sumAB) -
           static_cast<double>(sumA) * static_cast<double>(sumB) * 0.015625;
}

// out[i] = the sum of columns 8i .. 8i + 7, by three passes that each add neighbouring pairs.
template <typename T>
inline void SumEights(const T* columns, int blocks, int32_t* out) {
    T pairs[kBandColumns / 2], quads[kBandColumns / 4];
    for (int i = 0; i < blocks * 4; ++i) {
        pairs[i] = static_cast<T>(columns[2 * i] + columns[2 * i + 1]);
    }
    for (int i = 0; i < blocks * 2; ++i) {
        quads[i] = static_cast<T>(pairs[2 * i] + pairs[2 * i + 1]);
    }
    for (int i = 0; i < blocks; ++i) {
        out[i] = static_cast<int32_t>(quads[2 * i] + quads[2 * i + 1]);
    }
}

// First every column over the 8 rows (a product of two bytes fits 16 bits; the first row starts
// the sums), then each block's 8 columns. In this file's namespace: the clones' dispatching symbol
// would otherwise join the library's exported surface, whatever the visibility preset says.
IQA_KERNEL_CLONES void SumBandClones(const unsigned char* p1, const unsigned char* p2,
                                     int64_t stride, int blocks, BandSums* out) {
    uint16_t a[kBandColumns], b[kBandColumns];
    uint32_t aa[kBandColumns], bb[kBandColumns], ab[kBandColumns];
    const int columns = blocks * kSsimBlock;
    for (int x = 0; x < columns; ++x) {
        const uint16_t va = p1[x], vb = p2[x];
        a[x] = va, b[x] = vb;
        aa[x] = static_cast<uint16_t>(va * va);
        bb[x] = static_cast<uint16_t>(vb * vb);
        ab[x] = static_cast<uint16_t>(va * vb);
    }
    for (int y = 1; y < kSsimBlock; ++y) {
        const unsigned char* r1 = p1 + y * stride;
        const unsigned char* r2 = p2 + y * stride;
        for (int x = 0; x < columns; ++x) {
            const uint16_t va = r1[x], vb = r2[x];
            a[x] = static_cast<uint16_t>(a[x] + va);
            b[x] = static_cast<uint16_t>(b[x] + vb);
            aa[x] += static_cast<uint16_t>(va * va);
            bb[x] += static_cast<uint16_t>(vb * vb);
            ab[x] += static_cast<uint16_t>(va * vb);
        }
    }
    SumEights(a, blocks, out->a);
    SumEights(b, blocks, out->b);
    SumEights(aa, blocks, out->aa);
    SumEights(bb, blocks, out->bb);
    SumEights(ab, blocks, out->ab);
}

// Every block's value and denominator, the divisions four or two at a time.
IQA_KERNEL_CLONES void BandValuesClones(const BandSums* s, int blocks, double* value,
                                        double* denominator) {
    for (int i = 0; i < blocks; ++i) {
        const double muA = s->a[i] * 0.015625;
        const double muB = s->b[i] * 0.015625;
        const double varA = DeviationProduct(s->aa[i], s->a[i], s->a[i]) / 63;
        const double varB = DeviationProduct(s->bb[i], s->b[i], s->b[i]) / 63;
        const double covAB = DeviationProduct(s->ab[i], s->a[i], s->b[i]) / 63;
        denominator[i] = (muA * muA + muB * muB + kC1) * (varA + varB + kC2);
        value[i] = ((2 * muA * muB + kC1) * (2 * covAB + kC2)) / denominator[i];
    }
}

}  // namespace

void SumBand(const unsigned char* p1, const unsigned char* p2, int64_t stride, int blocks,
             BandSums* out) {
    SumBandClones(p1, p2, stride, blocks, out);
}

int BandValues(const BandSums& sums, int blocks, double* value) {
    double denominator[kBandBlocks];
    BandValuesClones(&sums, blocks, value, denominator);
    for (int i = 0; i < blocks; ++i) {
        if (denominator[i] == 0.0) {
            return i;
        }
    }
    return blocks;
}

}  // namespace IQA
