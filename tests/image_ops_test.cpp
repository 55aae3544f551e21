// DownScale and RGB to NV12: hand-computed values, bounds, and agreement with plain loops.
#include <gtest/gtest.h>

#include "IqaProcessData.h"
#include "process/BoxReduce.h"
#include "process/Nv12.h"
#include "process/PickPixels.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"

using iqa_test::Bytes;
using iqa_test::RandomBytes;

namespace {

constexpr unsigned char kGuard = 0xA5;

TEST(DownScale, TwoByTwoBlockMeanRoundsDown) {
    // 4 x 2 RGB. Left block: R 10, 11, 12, 13 (mean 11.5), G 255, B 0, 1, 2, 3 (mean 1.5).
    const Bytes src = {10, 255, 0, 11, 255, 1, 200, 0, 0, 200, 0, 0,
                       12, 255, 2, 13, 255, 3, 200, 0, 0, 200, 0, 0};
    Bytes dst(2 * 3 + 1, kGuard);
    IQA::IqaProcessData().DownScale(src.data(), 4, dst.data(), 2, 1);
    EXPECT_EQ((Bytes{11, 255, 1, 200, 0, 0, kGuard}), dst);
}

TEST(DownScale, RejectsZeroSizesAndZeroFillsWhenBlocksAreEmpty) {
    iqa_test::LogCapture log;
    const Bytes src(4 * 4 * 3, 9);
    Bytes dst(4 * 4 * 3, kGuard);
    IQA::IqaProcessData stage;
    stage.DownScale(src.data(), 0, dst.data(), 2, 2);
    stage.DownScale(src.data(), 4, dst.data(), 0, 2);
    stage.DownScale(src.data(), 4, dst.data(), 2, 0);
    stage.DownScale(src.data(), 4, dst.data(), -2, 2);  // nothing to produce
    stage.DownScale(src.data(), 4, dst.data(), 2, -2);
    EXPECT_EQ(Bytes(dst.size(), kGuard), dst);
    EXPECT_EQ(3u, log.Count("[DownScale]:Input error"));
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().at(0).priority);

    stage.DownScale(src.data(), -4, dst.data(), 2, 2);  // negative source: k < 1
    EXPECT_EQ(Bytes(12, 0), Bytes(dst.begin(), dst.begin() + 12));
    EXPECT_EQ(kGuard, dst[12]);
    stage.DownScale(src.data(), 2, dst.data(), 4, 2);  // k = 0
    EXPECT_EQ(Bytes(4 * 2 * 3, 0), Bytes(dst.begin(), dst.begin() + 24));
    EXPECT_EQ(kGuard, dst[24]);
}

TEST(DownScale, BoundedFormTreatsMissingRowsAsZero) {
    // The camera's block sides (3 and 12) over whole rows, and rows missing at the bottom; the
    // sides of 2 to 4 at widths with and without pixels after their last whole run of 16; a side
    // past the 16-bit sums (20) over whole blocks.
    const int sizes[][5] = {// srcW, srcRows, dstW, dstH, seed
                            {12, 5, 3, 3, 1},      {7, 7, 2, 2, 2},       {100, 3, 1, 1, 3},
                            {33, 40, 5, 9, 4},     {2500, 4, 1, 2, 5},    {5000, 3, 2, 3, 6},
                            {3840, 6, 1280, 2, 7}, {3840, 24, 320, 2, 8}, {2049, 2, 1024, 1, 9},
                            {105, 3, 35, 1, 10},   {139, 4, 34, 2, 11},   {4000, 4, 1000, 1, 12},
                            {60, 20, 3, 1, 13}};
    for (const auto& s : sizes) {
        const Bytes src = RandomBytes(static_cast<size_t>(s[0]) * s[1] * 3, s[4]);
        Bytes fast(static_cast<size_t>(s[2]) * s[3] * 3 + 1, kGuard), plain(fast.size(), kGuard);
        IQA::BoxReduce(src.data(), s[0], s[1], fast.data(), s[2], s[3]);
        iqa_ref::DownScale(src.data(), s[0], s[1], plain.data(), s[2], s[3]);
        EXPECT_EQ(plain, fast) << s[0] << "x" << s[1];
        EXPECT_EQ(kGuard, fast.back());
    }
}

TEST(DownScale, EveryBlockSideDividesExactly) {
    // Block sums up to k * k * 255 divided without a divide instruction: all-255 blocks and
    // near-boundary sums for every side the fast path serves.
    for (int k = 1; k <= 1024; k += (k < 40 ? 1 : 37)) {
        for (const unsigned char fill : {255, 254, 1}) {
            Bytes src(static_cast<size_t>(k) * 2 * k * 3, fill);
            src[0] = 0;  // one byte short of a full block
            Bytes fast(2 * 3), plain(2 * 3);
            IQA::BoxReduce(src.data(), 2 * k, k, fast.data(), 2, 1);
            iqa_ref::DownScale(src.data(), 2 * k, k, plain.data(), 2, 1);
            ASSERT_EQ(plain, fast) << "k=" << k << " fill=" << int(fill);
        }
    }
}

// Totals that end exactly at a page no one may read: a load of a byte at or past `count` faults.
template <int K>
void PickAtThePageEnd(int pixels) {
    const int count = 3 * K * (pixels - 1) + 3;
    const iqa_test::AtPageEnd totals(
        RandomBytes(static_cast<size_t>(count), static_cast<uint32_t>(K)));
    Bytes picked(static_cast<size_t>(pixels) * 3), plain;
    IQA::PickPixels<K>(totals.data(), pixels, count, picked.data());
    for (int p = 0; p < pixels; ++p) {
        plain.insert(plain.end(), totals.data() + 3 * K * p, totals.data() + 3 * K * p + 3);
    }
    EXPECT_EQ(plain, picked) << "k=" << K << ", " << pixels << " pixels";
}

TEST(DownScale, PixelsArePickedWithoutReadingPastTheirTotals) {
    for (const int pixels : {16, 17, 31, 32, 48, 100}) {
        PickAtThePageEnd<2>(pixels);
        PickAtThePageEnd<3>(pixels);
        PickAtThePageEnd<4>(pixels);
    }
}

Bytes Nv12Of(const Bytes& rgb, int width, int height) {
    Bytes out(static_cast<size_t>(IQA::Nv12Size(width, height)) + 1, kGuard);
    IQA::IqaProcessData().ConvertRGBToNV12(rgb.data(), width, height, out.data());
    EXPECT_EQ(kGuard, out.back()) << "wrote past the NV12 image";
    out.pop_back();
    return out;
}

TEST(Nv12, ColourValues) {
    struct Case {
        unsigned char r, g, b, y, u, v;
    } cases[] = {{0, 0, 0, 16, 128, 128},        {255, 255, 255, 235, 128, 128},
                 {128, 128, 128, 125, 128, 128}, {0, 255, 0, 144, 54, 35},
                 {0, 0, 255, 40, 239, 110},      {255, 0, 0, 81, 91, 239}};
    for (const Case& c : cases) {
        const Bytes solid = {c.r, c.g, c.b, c.r, c.g, c.b, c.r, c.g, c.b, c.r, c.g, c.b};
        EXPECT_EQ((Bytes{c.y, c.y, c.y, c.y, c.u, c.v}), Nv12Of(solid, 2, 2))
            << int(c.r) << "," << int(c.g) << "," << int(c.b);
    }
    // Chroma comes from the top-left pixel of the 2 x 2 block only.
    const Bytes rgb = {255, 0, 0, 0, 0, 255, 0, 0, 255, 0, 0, 255};
    EXPECT_EQ((Bytes{81, 40, 40, 40, 91, 239}), Nv12Of(rgb, 2, 2));
}

TEST(Nv12, MatchesPlainLoopsIncludingOddSizes) {
    const int sizes[][2] = {{1, 1}, {3, 1}, {1, 3}, {5, 3}, {250, 187}, {320, 240}, {33, 2}};
    for (const auto& s : sizes) {
        const Bytes rgb = RandomBytes(static_cast<size_t>(s[0]) * s[1] * 3, s[0] + s[1]);
        EXPECT_EQ(iqa_ref::Nv12(rgb.data(), s[0], s[1]), Nv12Of(rgb, s[0], s[1]))
            << s[0] << "x" << s[1];
    }
    Bytes untouched(8, kGuard);
    IQA::IqaProcessData().ConvertRGBToNV12(untouched.data(), 0, 4, untouched.data());
    IQA::IqaProcessData().ConvertRGBToNV12(untouched.data(), 4, 0, untouched.data());
    EXPECT_EQ(Bytes(8, kGuard), untouched);
}

}  // namespace
