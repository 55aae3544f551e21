// SSIM stage: hand-computed values, the blocks that count, and bit-identity with the two-pass
// reference.
#include <gtest/gtest.h>

#include <cstring>

#include "IqaCompSim.h"
#include "process/BlockSsim.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"

using iqa_test::Bytes;
using iqa_test::RandomBytes;

namespace {

double Ssim(const Bytes& a, const Bytes& b, int width, int height) {
    IQA::IqaCompSim stage;
    return stage.CalculateRgbSsim(a.data(), b.data(), width, height);
}

TEST(CompSim, NoWholeBlockIsNoResult) {
    const Bytes plane(64 * 64, 7);
    EXPECT_EQ(0.0, Ssim(plane, plane, 7, 64));
    EXPECT_EQ(0.0, Ssim(plane, plane, 64, 7));
    EXPECT_EQ(0.0, Ssim(plane, plane, 0, 0));
    EXPECT_EQ(0.0, Ssim(plane, plane, -8, 8));
    IQA::IqaCompSim stage;  // a missing plane, with the other one whole
    EXPECT_EQ(0.0, stage.CalculateRgbSsim(nullptr, plane.data(), 64, 64));
    EXPECT_EQ(0.0, stage.CalculateRgbSsim(plane.data(), nullptr, 64, 64));
    // What a run reads of each plane: nothing without a whole block, else up to the last byte of
    // the last whole block (row 15, column 15 of a 20 x 20 plane).
    EXPECT_EQ((std::vector<size_t>{0, 0, 0, 316}),
              (std::vector<size_t>{IQA::BlockSsimReach(7, 64), IQA::BlockSsimReach(64, 7),
                                   IQA::BlockSsimReach(0, 0), IQA::BlockSsimReach(20, 20)}));
}

TEST(CompSim, OnlyWholeBlocksOfTheLeadingPlaneCount) {
    Bytes a = RandomBytes(20 * 20 + 100, 2), b = RandomBytes(20 * 20 + 100, 3);
    const double before = Ssim(a, b, 20, 20);
    // Columns 16..19, rows 16..19 and everything behind width x height are outside every block.
    for (int y = 0; y < 20; ++y) {
        for (int x = 0; x < 20; ++x) {
            if (x >= 16 || y >= 16) {
                a[y * 20 + x] ^= 0x5A;
            }
        }
    }
    std::memset(b.data() + 400, 0xEE, 100);
    EXPECT_EQ(before, Ssim(a, b, 20, 20));

    // The mean is taken over 2 x 2 blocks: one identical block and three of black vs white.
    Bytes c(16 * 16, 0), d(16 * 16, 255);
    for (int y = 0; y < 8; ++y) {
        std::memset(&d[y * 16], 0, 8);
    }
    const double c1 = 6.5025;
    EXPECT_DOUBLE_EQ((1.0 + 3 * (c1 / (255.0 * 255.0 + c1))) / 4, Ssim(c, d, 16, 16));
}

TEST(CompSim, MatchesTwoPassReferenceBitForBit) {
    const int sizes[][2] = {{8, 8}, {9, 17}, {23, 8}, {64, 48}, {321, 239}, {1280, 64}};
    uint32_t seed = 10;
    for (const auto& size : sizes) {
        const int w = size[0], h = size[1];
        const Bytes a = RandomBytes(static_cast<size_t>(w) * h, seed++);
        Bytes b = a;
        for (size_t i = 0; i < b.size(); i += 3) {
            b[i] = static_cast<unsigned char>(b[i] / 2 + 60);  // related but different
        }
        const Bytes noise = RandomBytes(a.size(), seed++);
        EXPECT_EQ(iqa_ref::Ssim(a.data(), b.data(), w, h), Ssim(a, b, w, h)) << w << "x" << h;
        EXPECT_EQ(iqa_ref::Ssim(a.data(), noise.data(), w, h), Ssim(a, noise, w, h));
        EXPECT_NEAR(Ssim(a, b, w, h), Ssim(b, a, w, h), 1e-12);
    }
}

TEST(CompSim, ProcessImageStoresScoreAndLogs) {
    iqa_test::LogCapture log;
    Bytes a = RandomBytes(3 * 32 * 16, 4);
    IqaImageInfo info{};
    info.thumbBuffer = a.data();
    info.jpegBuffer = a.data();
    info.thumbWidth = 32;
    info.thumbHeight = 16;
    IQA::IqaCompSim stage;
    EXPECT_TRUE(stage.ProcessImage(info));
    EXPECT_EQ(1.0, info.ssim);
    EXPECT_EQ((std::vector<std::string>{"[ProcessImage]:begin CalculateRgbSsim",
                                        "[ProcessImage]:ssim result: 1.000000"}),
              log.Lines());
    EXPECT_EQ(ANDROID_LOG_INFO, log.Entries().at(0).priority);
    EXPECT_EQ("IqaDebug-CompSim", log.Entries().at(0).tag);

    info.thumbWidth = 7;  // no whole block: failure
    EXPECT_FALSE(stage.ProcessImage(info));
    EXPECT_EQ(0.0, info.ssim);
}

}  // namespace
