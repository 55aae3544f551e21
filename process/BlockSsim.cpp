// Block SSIM. Per block the sums of bytes, squares and cross products are exact integers; the
// deviation sums derived from them in double equal, bit for bit, the two-pass sums of
// (a - mean)^2 and (a - mean)(b - mean), since every intermediate is a multiple of 1/64 that
// double holds exactly. The final expression keeps its written order. Four blocks side by side
// keep their sums in registers over a band's 8 rows, and every operation is a whole-vector one,
// so that compilers vectorise them on x86-64 and arm64.
#include "process/BlockSsim.h"

#include <cstring>

#include "common/KernelClones.h"

namespace IQA {

namespace {

constexpr double kC1 = 6.5025;   // (0.01 * 255)^2
constexpr double kC2 = 58.5225;  // (0.03 * 255)^2

// Sum over the block of (a - meanA)(b - meanB), exactly: sumAB - sumA * sumB / 64.
double DeviationProduct(int32_t sumAB, int32_t sumA, int32_t sumB) {
    return static_cast<double>(sumAB) -
           static_cast<double>(sumA) * static_cast<double>(sumB) * 0.015625;
}

// Bytes are loaded 32 at a time as sixteen 16-bit lanes, each holding two neighbouring columns;
// masks and shifts split them into the even and the odd column, so no widening shuffle is needed
// and every operation is a whole-vector one on any target. Each 16-bit product then adds its two
// halves into 32-bit lanes, four columns to a lane.
using Lanes16 = uint16_t __attribute__((vector_size(32)));
using Lanes32 = uint32_t __attribute__((vector_size(32)));
using Lanes64 = uint64_t __attribute__((vector_size(32)));
constexpr int kStepBlocks = sizeof(Lanes16) / kSsimBlock;  // one load: four blocks

#define IQA_INLINE inline __attribute__((always_inline))

// out[0, 4): the four blocks' sums of a step's 32-bit lanes, block k being lanes 2k and 2k + 1.
// Vectors go to the helpers by reference: by value, their passing convention would differ
// between the clones.
IQA_INLINE void StoreBlocks(const Lanes32& lanes, int32_t* out) {
    const Lanes64 w = reinterpret_cast<Lanes64>(lanes);
    const Lanes64 blocks = (w & 0xFFFFFFFF) + (w >> 32);
    for (int k = 0; k < kStepBlocks; ++k) {
        out[k] = static_cast<int32_t>(blocks[k]);
    }
}

// The same for 16-bit lanes, block k being lanes 4k .. 4k + 3.
IQA_INLINE void StoreBlocks(const Lanes16& lanes, int32_t* out) {
    const Lanes32 w = reinterpret_cast<Lanes32>(lanes);
    StoreBlocks(Lanes32{(w & 0xFFFF) + (w >> 16)}, out);
}

// Sums of 16-bit products, two to a 32-bit lane: the lanes are added whole (the low halves carry
// into the high ones) and the high halves on their own, which takes one operation less per
// product than splitting each lane; the low halves' sum is then whole - 2^16 high, exactly.
struct ProductSums {
    Lanes32 whole, high;

    IQA_INLINE void Add(const Lanes16& x, const Lanes16& y) {
        const Lanes32 wx = reinterpret_cast<Lanes32>(x), wy = reinterpret_cast<Lanes32>(y);
        whole += wx + wy;
        high += (wx >> 16) + (wy >> 16);
    }
    // The blocks' sums of every product added.
    IQA_INLINE void Store(int32_t* out) const {
        StoreBlocks(Lanes32{whole - (high << 16) + high}, out);
    }
};

// The five sums of four blocks side by side, over 32 columns of the band's 8 rows.
struct StepSums {
    Lanes16 a, b;            // lane j: columns 2j and 2j + 1
    ProductSums aa, bb, ab;  // lane j: columns 4j .. 4j + 3
};

IQA_INLINE void AddRow(const unsigned char* r1, const unsigned char* r2, StepSums* s) {
    Lanes16 v1, v2;
    std::memcpy(&v1, r1, sizeof v1);
    std::memcpy(&v2, r2, sizeof v2);
    const Lanes16 ae = v1 & 0xFF, ao = v1 >> 8, be = v2 & 0xFF, bo = v2 >> 8;
    s->a += ae + ao;
    s->b += be + bo;
    s->aa.Add(ae * ae, ao * ao);
    s->bb.Add(be * be, bo * bo);
    s->ab.Add(ae * be, ao * bo);
}

// One block's five sums by plain loops: the blocks after the last whole step.
void SumBlock(const unsigned char* p1, const unsigned char* p2, int64_t stride, BandSums* out,
              int k) {
    int32_t a = 0, b = 0, aa = 0, bb = 0, ab = 0;
    for (int y = 0; y < kSsimBlock; ++y) {
        for (int x = 0; x < kSsimBlock; ++x) {
            const int32_t va = p1[y * stride + x], vb = p2[y * stride + x];
            a += va, b += vb, aa += va * va, bb += vb * vb, ab += va * vb;
        }
    }
    out->a[k] = a, out->b[k] = b, out->aa[k] = aa, out->bb[k] = bb, out->ab[k] = ab;
}

// Steps of four blocks whose sums stay in registers over the 8 rows. In this file's namespace:
// the clones' dispatching symbol would otherwise join the library's exported surface, whatever
// the visibility preset says.
IQA_KERNEL_CLONES void SumBandClones(const unsigned char* p1, const unsigned char* p2,
                                     int64_t stride, int blocks, BandSums* out) {
    int k = 0;
    for (; k + kStepBlocks <= blocks; k += kStepBlocks) {
        const int64_t x = static_cast<int64_t>(k) * kSsimBlock;
        StepSums s = {};
        for (int y = 0; y < kSsimBlock; ++y) {
            AddRow(p1 + y * stride + x, p2 + y * stride + x, &s);
        }
        StoreBlocks(s.a, out->a + k);
        StoreBlocks(s.b, out->b + k);
        s.aa.Store(out->aa + k);
        s.bb.Store(out->bb + k);
        s.ab.Store(out->ab + k);
    }
    for (; k < blocks; ++k) {
        const int64_t x = static_cast<int64_t>(k) * kSsimBlock;
        SumBlock(p1 + x, p2 + x, stride, out, k);
    }
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
