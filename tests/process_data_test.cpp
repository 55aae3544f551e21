// The preparation stage over real files: decode both, reduce the larger, report failures.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "IqaProcessData.h"
#include "process/JpegFile.h"
#include "process/PairRecord.h"
#include "process/Preparation.h"
#include "process/ReducingRowSink.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"

using iqa_test::Bytes;

namespace {

// The batch run's buffer size, spelled out: the stage must take any capacity a host gives it.
constexpr unsigned long long kCapacity = 64000000;

class PrepareStage : public ::testing::Test {
  protected:
    // A raw thumbnail first, then `second` of decoder type `type`.
    IqaImageInfo Record(const std::string& first, const std::string& second, int type) {
        return IQA::PairRecord("photo", dir.File(first), dir.File(second),
                               {thumb.data(), photo.data(), kCapacity}, type);
    }
    void WriteThumb(const std::string& name, int w, int h, const Bytes& rgb) {
        iqa_test::WriteFile(dir.File(name), iqa_tools::ThumbnailFile(w, h, rgb));
    }

    iqa_test::TempDir dir;
    iqa_test::LogCapture log;
    IQA::IqaProcessData stage;
    Bytes thumb = Bytes(kCapacity, 0x11);
    Bytes photo = Bytes(kCapacity, 0x22);
};

TEST_F(PrepareStage, TheImageWithMorePixelsIsReducedToTheOthersSize) {
    // Equal pixel counts stay as they are; 300 x 10 reduced to 20 x 100 (k = 15) must not read
    // the 1500 rows a plain reduction would; an image one pixel wide, or of one pixel, is an image.
    const struct {
        int w1, h1, w2, h2, reduced;  // 0: neither, 1: the first, 2: the second
    } cases[] = {{200, 100, 100, 200, 0},
                 {200, 100, 50, 25, 1},
                 {20, 100, 300, 10, 2},
                 {1, 40, 4, 40, 2},
                 {1, 1, 3, 3, 2}};
    for (const auto& c : cases) {
        const Bytes first = iqa_test::RandomBytes(c.w1 * c.h1 * 3, 14);
        const Bytes second = iqa_test::RandomBytes(c.w2 * c.h2 * 3, 15);
        WriteThumb("1.thumbnail", c.w1, c.h1, first);
        WriteThumb("2.thumbnail", c.w2, c.h2, second);
        log.Clear();
        IqaImageInfo info = Record("1.thumbnail", "2.thumbnail", IQA::DECODER_THUMBNAIL);
        ASSERT_TRUE(stage.ProcessImage(info));
        const bool one = c.reduced == 1;
        const int w = one ? c.w2 : c.w1, h = one ? c.h2 : c.h1;
        EXPECT_EQ(
            (std::vector<int>{w, h, c.reduced == 2 ? w : c.w2, c.reduced == 2 ? h : c.h2}),
            (std::vector<int>{info.thumbWidth, info.thumbHeight, info.jpegWidth, info.jpegHeight}));
        EXPECT_EQ(c.reduced != 0, log.Contains("[ProcessImage]:begin downscale jpeg " +
                                               dir.File(one ? "1.thumbnail" : "2.thumbnail")));
        const Bytes expected =
            c.reduced == 0 ? second
                           : iqa_ref::Reduced(one ? first : second, one ? c.w1 : c.w2, w, h);
        const Bytes& out = one ? thumb : photo;
        EXPECT_EQ(expected, Bytes(out.begin(), out.begin() + static_cast<long>(expected.size())));
    }
}

TEST_F(PrepareStage, JpegReducedWhileDecodingMatchesTheWholeImageReduction) {
    // {jpeg w, h, thumbnail w, h, options}: rows past the image, a partial last block, rows never
    // used, odd sizes, a JPEG narrower than the thumbnail (k = 0), and columns and rows left out
    // of the decode (crop, skip) for 4:2:0 (fancy upsampling at the crop's edge), 4:4:4,
    // progressive and restart-marked photos.
    const iqa_tools::JpegOptions plain, full{false, 0, true}, progressive{true, 0, false},
        restarts{false, 2, false};
    const struct {
        int w, h, tw, th;
        const iqa_tools::JpegOptions& options;
    } cases[] = {{300, 10, 20, 100, plain},      {97, 61, 9, 7, plain},
                 {64, 64, 16, 4, plain},         {203, 157, 40, 31, plain},
                 {10, 20, 50, 2, plain},         {640, 480, 160, 120, plain},
                 {700, 131, 64, 12, plain},      {700, 131, 64, 12, full},
                 {1000, 75, 300, 21, plain},     {1000, 75, 300, 21, progressive},
                 {1003, 133, 100, 13, restarts}, {1003, 133, 100, 13, full},
                 {4000, 3000, 320, 240, plain}};
    for (const auto& c : cases) {
        const Bytes rgb = iqa_tools::RenderScene(c.w, c.h, static_cast<uint32_t>(c.w));
        const Bytes jpeg = iqa_tools::EncodeJpeg(rgb, c.w, c.h, 3, 90, c.options);
        iqa_test::WriteFile(dir.File("s.jpg"), jpeg);
        WriteThumb("s.thumbnail", c.tw, c.th, Bytes(static_cast<size_t>(c.tw) * c.th * 3, 5));
        IqaImageInfo info = Record("s.thumbnail", "s.jpg", IQA::DECODER_JPEG);
        ASSERT_TRUE(stage.ProcessImage(info));
        EXPECT_EQ(
            (std::vector<int>{c.tw, c.th, c.tw, c.th}),
            (std::vector<int>{info.thumbWidth, info.thumbHeight, info.jpegWidth, info.jpegHeight}));
        Bytes decoded;
        int w = 0, h = 0;
        ASSERT_TRUE(iqa_tools::DecodeJpeg(jpeg, &decoded, &w, &h));
        const size_t bytes = static_cast<size_t>(c.tw) * c.th * 3;
        Bytes expected(bytes);
        iqa_ref::DownScale(decoded.data(), w, h, expected.data(), c.tw, c.th);
        EXPECT_EQ(expected, Bytes(photo.begin(), photo.begin() + static_cast<long>(bytes)))
            << c.w << "x" << c.h << " to " << c.tw << "x" << c.th;
        // Behind the reduced image the buffer is clear, up to where a whole decode reaches.
        EXPECT_TRUE(std::all_of(photo.begin() + static_cast<long>(bytes),
                                photo.begin() + static_cast<long>(decoded.size()),
                                [](unsigned char b) { return b == 0; }));
    }
}

TEST_F(PrepareStage, TrackedBuffersEndUpAsIfClearedWhole) {
    // The batch run's buffers start zero and are tracked; a stage then clears only what was
    // written, and the buffer must read exactly as after a full clear.
    std::fill(photo.begin(), photo.end(), 0);
    std::fill(thumb.begin(), thumb.end(), 0);
    IQA::RunBuffer photoRun{photo.data(), photo.size()}, thumbRun{thumb.data(), thumb.size()};
    const std::pair<int, int> sizes[] = {{400, 300}, {120, 90}};
    for (const auto& [w, h] : sizes) {
        const std::string name = std::to_string(w);
        iqa_test::WriteFile(
            dir.File(name + ".jpg"),
            iqa_tools::EncodeJpeg(iqa_test::RandomBytes(w * h * 3, w), w, h, 3, 90));
        WriteThumb(name + ".thumbnail", w / 4, h / 4, iqa_test::RandomBytes(w * h * 3 / 16, h));
        IqaImageInfo info = Record(name + ".thumbnail", name + ".jpg", IQA::DECODER_JPEG);
        ASSERT_TRUE(IQA::Prepare(info, {&thumbRun, &photoRun, nullptr}));
    }
    const auto tail = photo.begin() + 30 * 22 * 3;
    EXPECT_TRUE(std::all_of(tail, photo.end(), [](unsigned char b) { return b == 0; }));
    for (const iqa_test::LogEntry& e : log.Entries()) {
        EXPECT_NE(ANDROID_LOG_ERROR, e.priority) << e.message;  // every clear succeeded
    }
}

// Under a run's tracked clears: the pages a writer is about to fill are asked for in one call
// before it writes (where the kernel can), and the buffer records where its zeros begin, so that
// the next writer clears exactly what an earlier one left beyond its own bytes.
TEST(RunBuffer, AsksForAWritersPagesAndKnowsWhereItsZerosBegin) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), pages = 16;
    void* map =
        mmap(nullptr, pages * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(MAP_FAILED, map);
    auto* data = static_cast<unsigned char*>(map);
    const auto resident = [&] {
        std::vector<unsigned char> in(pages);
        EXPECT_EQ(0, mincore(map, pages * page, in.data()));
        std::vector<bool> out;
        std::transform(in.begin(), in.end(), std::back_inserter(out),
                       [](unsigned char b) { return (b & 1) != 0; });
        return out;
    };
    // Whether this kernel (or emulator) makes pages resident on request: probed on a page apart.
    bool populates = false;
#ifdef MADV_POPULATE_WRITE
    void* probe = mmap(nullptr, page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    unsigned char in = 0;
    populates = probe != MAP_FAILED && madvise(probe, page, MADV_POPULATE_WRITE) == 0 &&
                mincore(probe, page, &in) == 0 && (in & 1) != 0;
    munmap(probe, page);
#endif
    IQA::RunBuffer run{data, pages * page};
    EXPECT_EQ(0, IQA::Rewrite(&run, 5 * page + 1));  // nothing was written before
    std::vector<bool> asked(pages, populates);
    std::fill(asked.begin() + 6, asked.end(), false);
    EXPECT_EQ(asked, resident());
    std::fill_n(data, 5 * page + 1, 7);  // the first photo's writer
    const auto sevens = [&] {
        return static_cast<size_t>(std::count(data, data + pages * page, 7));
    };
    EXPECT_EQ(0, IQA::Rewrite(&run, 2 * page));  // a smaller photo: the first one's rest cleared
    EXPECT_EQ((std::vector<size_t>{2 * page, 2 * page}),
              (std::vector<size_t>{run.dirty, sevens()}));
    EXPECT_EQ(0, IQA::ClearFrom(data, pages * page, &run, page));  // a reduction kept `page`
    EXPECT_EQ((std::vector<size_t>{page, page}), (std::vector<size_t>{run.dirty, sevens()}));
    EXPECT_EQ(0, IQA::ClearFrom(data, pages * page, &run, page));  // nothing left: no clear at all
    EXPECT_EQ(0, IQA::ClearFrom(data, pages * page, &run, 2 * page));  // nor behind the zeros
    EXPECT_EQ(page, run.dirty);
    munmap(map, pages * page);
}

TEST_F(PrepareStage, DecodeFailures) {
    WriteThumb("t.thumbnail", 16, 16, Bytes(16 * 16 * 3, 1));
    IqaImageInfo unknown = Record("t.thumbnail", "t.thumbnail", IQA::DECODER_THUMBNAIL);
    unknown.thumbDecoderType = 7;
    EXPECT_FALSE(stage.ProcessImage(unknown));
    EXPECT_EQ(
        (std::vector<std::string>{"[Decoder]:begin decoder", "[ProcessImage]:Decoder failed"}),
        log.Lines());
    EXPECT_EQ(0.0, unknown.ssim);

    log.Clear();
    IqaImageInfo missing = Record("t.thumbnail", "none.jpg", IQA::DECODER_JPEG);
    missing.jpegWidth = missing.jpegHeight = 8;  // sizes left from elsewhere prove nothing
    EXPECT_FALSE(stage.ProcessImage(missing));
    EXPECT_EQ("[ProcessImage]:Decoder failed", log.Lines().back());
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().back().priority);
    EXPECT_EQ(16, missing.thumbWidth);  // the first image stays decoded
}

// A photo with more pixels than the thumbnail is decoded only where the reduction reads (k = 10:
// 640 of 700 columns, 120 of 131 rows); one with no more is decoded whole. Strip rows never start
// on a 16-byte boundary (libjpeg would stream those past the cache) and never overlap.
TEST(ReducingRowSink, PlansOnlyTheColumnsAndRowsTheReductionReads) {
    Bytes out(64 * 12 * 3), plain(700 * 131 * 3);
    IQA::ReducingRowSink sink(out.data(), 64, 12, plain.data());
    const IQA::RowRegion reduced = sink.Plan(700, 131);
    const IQA::RowRegion whole = IQA::ReducingRowSink(out.data(), 64, 12, plain.data()).Plan(96, 8);
    EXPECT_EQ((std::vector<uint32_t>{640, 120, 96, 8}),
              (std::vector<uint32_t>{reduced.columns, reduced.rows, whole.columns, whole.rows}));
    sink.Begin(657);
    unsigned char* rows[16];
    ASSERT_EQ(sink.Place(0, 16, rows), 16u);
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(rows[i]) % 16, 8u) << "row " << i;
        if (i > 0) {
            EXPECT_GE(rows[i] - rows[i - 1], 657 * 3) << "row " << i;
        }
    }

    // A real decode of a 4:2:0 photo that wide reconstructs the 640 columns and one iMCU column
    // (16 pixels) more, for the upsampling at their edge, and no others.
    struct Seen : IQA::JpegRowSink {
        explicit Seen(IQA::JpegRowSink& sink) : to(sink) {}
        IQA::RowRegion Plan(uint32_t w, uint32_t h) override { return to.Plan(w, h); }
        void Begin(uint32_t pixels) override { to.Begin(rowPixels = pixels); }
        uint32_t Place(uint32_t f, uint32_t n, unsigned char** r) override {
            return to.Place(f, n, r);
        }
        void Filled(uint32_t first, uint32_t count) override { to.Filled(first, count); }
        void End() override { to.End(); }
        IQA::JpegRowSink& to;
        uint32_t rowPixels = 0;
    };
    const iqa_test::TempDir dir;
    iqa_test::WriteFile(
        dir.File("p.jpg"),
        iqa_tools::EncodeJpeg(iqa_tools::RenderScene(700, 131, 1), 700, 131, 3, 90));
    IQA::ReducingRowSink reducing(out.data(), 64, 12, plain.data());
    Seen seen(reducing);
    int width = 0, height = 0;
    EXPECT_EQ(700 * 131,
              IQA::DecodeJpegFile(dir.File("p.jpg").c_str(), plain.size(), seen, &width, &height));
    EXPECT_EQ(656u, seen.rowPixels);
}

}  // namespace
