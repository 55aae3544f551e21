// Black/green screen detection on small frames with a fixed rand() seed, and the extremes of
// width, height and stride.
#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

#include "IqaAnomDetect.h"
#include "McsRecordingService.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"

using iqa_test::Bytes;

namespace {

// A frame of stride x height luma bytes and (even width) x ceil(height/2) chroma bytes.
struct Frame {
    Frame(unsigned w, unsigned h, int s, unsigned char luma, unsigned char chroma)
        : width(w), height(h), stride(s), bytes(static_cast<size_t>(s) * h, luma) {
        bytes.resize(bytes.size() + (w & ~1u) * ((h + 1) / 2) + 2, chroma);
    }
    unsigned char& Luma(unsigned x, unsigned y) { return bytes[y * stride + x]; }
    unsigned width, height;
    int stride;
    Bytes bytes;
};

// The squares the detector will draw after srand(seed), worked out the same way by hand.
struct Draw {
    unsigned x1, y1, x2, y2;
};
Draw Drawn(unsigned seed, unsigned width, unsigned height) {
    srand(seed);
    const unsigned half = width / 2, n = std::min(half, height / 2);
    Draw d;
    d.x1 = static_cast<unsigned>(rand()) % (half - n + 1);
    d.y1 = static_cast<unsigned>(rand()) % (height - n + 1);
    d.x2 = static_cast<unsigned>(rand()) % (half - n + 1);
    d.y2 = static_cast<unsigned>(rand()) % (height - n + 1);
    return d;
}

class AnomDetect : public ::testing::Test {
  protected:
    AnomDetect() : installed(&service) {}
    iqa_test::LogCapture log;
    MCS::RecordingService service;
    MCS::ScopedService installed;
    IQA::IqaAnomDetect detector;
};

TEST_F(AnomDetect, GreenAndBlackFramesAreReported) {
    Frame green(64, 48, 64, 0, 0), black(64, 48, 70, 0, 128), normal(64, 48, 64, 90, 128);
    detector.AnomDetect(green.bytes.data(), green.width, green.height, green.stride, "g.jpg");
    detector.AnomDetect(black.bytes.data(), black.width, black.height, black.stride, "b.jpg");
    detector.AnomDetect(normal.bytes.data(), normal.width, normal.height, normal.stride, "n");
    const auto events = service.Events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(8, events[0].eventId);
    EXPECT_EQ(0, events[0].record.anomType);
    EXPECT_EQ(std::string("g.jpg"), events[0].record.jpegName);
    EXPECT_EQ(1, events[1].record.anomType);
    EXPECT_EQ(
        (std::vector<std::string>{
            "[AnomDetect]:with abnormal green screen!", "[UpLoadBigData]:upload bigdata of g.jpg.",
            "[AnomDetect]:with abnormal black screen!", "[UpLoadBigData]:upload bigdata of b.jpg.",
            "[AnomDetect]:without anom"}),
        log.Lines());
}

TEST_F(AnomDetect, ThresholdIsMoreThanAQuarterOfTheSampledPixels) {
    // 8 x 8: n = 4, T = 8. Mark exactly T (then T + 1) pixels of the first drawn square green.
    for (int extra = 0; extra <= 1; ++extra) {
        Frame frame(8, 8, 8, 50, 0);  // chroma 0 everywhere: luma decides
        const Draw d = Drawn(77, 8, 8);
        EXPECT_EQ(0u, d.x1);  // x1 is drawn mod 1
        for (int i = 0; i < 8 + extra; ++i) {
            frame.Luma(d.x1 + i % 4, d.y1 + i / 4) = 0;
        }
        srand(77);
        EXPECT_EQ(extra == 1, detector.CheckGreenScreen(frame.bytes.data(), 8, 8, 8)) << extra;
    }
    // n = 1 (a frame 2 pixels wide): T = 0, so the first match decides.
    Frame two(2, 5, 2, 0, 0);
    EXPECT_TRUE(detector.CheckGreenScreen(two.bytes.data(), 2, 5, 2));
}

// Where each square lies: a frame that is green (or black) only in a block of its right half,
// against a plain count over the two squares the detector draws, one in each half.
TEST_F(AnomDetect, OneSquareInEachHalfAtTheDrawnPlaces) {
    constexpr unsigned kW = 64, kH = 48, kSide = 24, kThreshold = kSide * kSide / 2;
    const auto inBlock = [](unsigned x, unsigned y) { return x >= 40 && y >= 12; };
    for (const unsigned char chroma : {0, 128}) {
        Frame frame(kW, kH, kW, 90, 128);
        for (unsigned y = 0; y < kH; ++y) {
            for (unsigned x = 0; x < kW; ++x) {
                if (inBlock(x, y)) {
                    frame.Luma(x, y) = 0;
                    frame.bytes[kW * kH + y / 2 * kW + x] = chroma;
                }
            }
        }
        std::set<bool> seen;
        for (unsigned seed = 1; seed <= 40; ++seed) {
            const Draw d = Drawn(seed, kW, kH);
            unsigned matches = 0;
            for (unsigned y = 0; y < kSide; ++y) {
                for (unsigned x = 0; x < kSide; ++x) {
                    matches += inBlock(d.x1 + x, d.y1 + y) + inBlock(kW / 2 + d.x2 + x, d.y2 + y);
                }
            }
            srand(seed);
            const bool found = chroma == 0
                                   ? detector.CheckGreenScreen(frame.bytes.data(), kW, kH, kW)
                                   : detector.CheckBlackScreen(frame.bytes.data(), kW, kH, kW);
            EXPECT_EQ(matches > kThreshold, found) << "seed " << seed << ", chroma " << +chroma;
            seen.insert(found);
        }
        EXPECT_EQ(2u, seen.size()) << "the seeds must draw squares on both sides of the threshold";
    }
}

TEST_F(AnomDetect, ChromaIsReadPerPairOfColumnsAndPerPairOfRows) {
    // Luma 0 everywhere; chroma pairs alternate green (0, 0) and grey (128, 128), so the pixels
    // of columns 4i and 4i + 1 match: half of each square, twice the threshold in all. Were odd
    // columns to read the pair that starts at their own byte, only a quarter would match.
    Frame frame(16, 16, 16, 0, 0);
    for (size_t i = 16 * 16; i < frame.bytes.size(); ++i) {
        frame.bytes[i] = (i - 16 * 16) % 16 / 2 % 2 == 0 ? 0 : 128;
    }
    for (unsigned seed = 1; seed <= 5; ++seed) {
        srand(seed);
        EXPECT_TRUE(detector.CheckGreenScreen(frame.bytes.data(), 16, 16, 16)) << seed;
    }
    // An odd width: a chroma row holds width - 1 bytes. Green pairs at columns 0-1 and 4-5 of
    // every chroma row make half of each 4 x 4 square match, twice the threshold; chroma rows
    // read a byte longer would split every pair below the first row, too few for it.
    Frame odd(9, 8, 9, 0, 128);
    for (unsigned row = 0; row < 4; ++row) {
        for (const unsigned column : {0u, 1u, 4u, 5u}) {
            odd.bytes[9 * 8 + 8 * row + column] = 0;
        }
    }
    srand(1);
    EXPECT_TRUE(detector.CheckGreenScreen(odd.bytes.data(), 9, 8, 9));
    // Only the top chroma row green: only pixels of rows 0 and 1 match, too few for the threshold.
    Frame top(16, 16, 16, 0, 128);
    std::fill(top.bytes.begin() + 16 * 16, top.bytes.begin() + 16 * 16 + 16, 0);
    srand(1);
    EXPECT_FALSE(detector.CheckGreenScreen(top.bytes.data(), 16, 16, 16));
}

TEST_F(AnomDetect, NullBufferAndSmallestFrames) {
    detector.AnomDetect(nullptr, 64, 64, 64, "null");
    EXPECT_EQ((std::vector<std::string>{"[CheckGreenScreen]:get buffer failed!",
                                        "[CheckBlackScreen]:get buffer failed!",
                                        "[AnomDetect]:without anom"}),
              log.Lines());
    EXPECT_EQ("IqaDebug-AnomDetect", log.Entries().at(0).tag);
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries()[0].priority);
    // 0 and 1 pixel wide or high: n = 0, no anomaly; 2 and 3 and odd widths: n >= 1.
    const unsigned sizes[][2] = {{0, 0}, {1, 1}, {0, 9}, {9, 0}, {1, 9}, {9, 1},
                                 {2, 2}, {3, 3}, {3, 7}, {7, 3}, {5, 2}};
    for (const auto& s : sizes) {
        Frame frame(s[0], s[1], static_cast<int>(s[0]), 0, 0);
        const bool expected = s[0] >= 2 && s[1] >= 2;
        EXPECT_EQ(expected, detector.CheckGreenScreen(frame.bytes.data(), s[0], s[1], frame.stride))
            << s[0] << "x" << s[1];
    }
    EXPECT_TRUE(service.Events().empty());
    // A negative stride cannot index the frame: the guard ends the check.
    log.Clear();
    Frame frame(8, 8, 8, 0, 0);
    EXPECT_FALSE(detector.CheckBlackScreen(frame.bytes.data(), 8, 8, -8));
    EXPECT_EQ((std::vector<std::string>{"[CheckBlackScreen]:get size error!"}), log.Lines());
}

}  // namespace
