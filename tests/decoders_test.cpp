// Thumbnail and JPEG decoders on files written at test time: layouts, limits and failures.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "IqaProcessData.h"
#include "common/FileCalls.h"
#include "process/BlockSsim.h"
#include "process/JpegFileSource.h"
#include "process/ThumbnailFile.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"

using iqa_test::Bytes;

namespace {

class Decoders : public ::testing::Test {
  protected:
    // `inRun`: as a batch run decodes it, keeping only what the SSIM reads.
    long long Thumb(const std::string& name, unsigned long long capacity, bool inRun = false) {
        IQA::RunBuffer run{buffer.data(), buffer.size()};
        return inRun ? IQA::DecodeThumbnailFile(dir.File(name).c_str(), buffer.data(), capacity,
                                                &run, IQA::BlockSsimReach, &width, &height)
                     : stage.ThumbnailDecoder(dir.File(name).c_str(), buffer.data(), capacity,
                                              &width, &height);
    }
    long long Jpeg(const std::string& name, unsigned long long capacity) {
        return stage.JpegDecoder(dir.File(name).c_str(), buffer.data(), capacity, &width, &height);
    }
    void Write(const std::string& name, const Bytes& bytes) {
        iqa_test::WriteFile(dir.File(name), bytes);
    }

    iqa_test::TempDir dir;
    iqa_test::LogCapture log;
    IQA::IqaProcessData stage;
    Bytes buffer = Bytes(1 << 20, 0xCC);
    int width = -7, height = -7;
};

TEST_F(Decoders, ThumbnailDropsFourthByte) {
    // Read in several blocks; bytes behind the pixels are ignored. Behind the image the buffer
    // holds the last quarter of the raw bytes, as a whole read compacted in place leaves it,
    // except in a batch run's own buffer.
    const int w = 331, h = 263;  // 87,053 pixels: a whole block of 65,536, then a part
    Bytes raw = iqa_tools::ThumbnailFile(w, h, Bytes(w * h * 3, 0));
    const Bytes pixels = iqa_test::RandomBytes(w * h * 4, 8);
    std::copy(pixels.begin(), pixels.end(), raw.begin() + 16);
    raw.insert(raw.end(), {99, 98, 97});
    Write("b.thumbnail", raw);
    for (bool tracked : {false, true}) {
        std::fill(buffer.begin(), buffer.end(), 0xCC);
        IQA::RunBuffer run{buffer.data(), buffer.size()};
        log.Clear();
        EXPECT_EQ(w * h, IQA::DecodeThumbnailFile(dir.File("b.thumbnail").c_str(), buffer.data(),
                                                  buffer.size(), tracked ? &run : nullptr, nullptr,
                                                  &width, &height));
        EXPECT_EQ((std::vector<int>{w, h}), (std::vector<int>{width, height}));
        EXPECT_EQ((std::vector<std::string>{"[ThumbnailDecoder]:output width 331, height 263\n"}),
                  log.Lines());
        const long image = w * h * 3, end = w * h * 4;
        EXPECT_EQ(iqa_ref::DropFourthByte(pixels), Bytes(buffer.begin(), buffer.begin() + image));
        EXPECT_EQ(tracked ? Bytes(end - image, 0xCC) : Bytes(pixels.begin() + image, pixels.end()),
                  Bytes(buffer.begin() + image, buffer.begin() + end))
            << (tracked ? "tracked" : "untracked");
    }
}

// A run proves the thumbnail's unkept pixels readable without keeping them: from the page cache
// when they are all in it, through a pipe when some are not (a file with a hole), by reading when
// no descriptor is left for a pipe. Each way must say what reading says: in the file, at and past
// its end (which lies inside a page), when a read fails on the way, when the descriptor cannot be
// read; and a proof from memory reads nothing.
TEST_F(Decoders, ReadingThroughSaysWhatReadingSays) {
    const Bytes bytes = iqa_test::RandomBytes((3 << 20) + 100, 15);
    Write("r", bytes);
    Write("hole", Bytes(bytes.begin(), bytes.begin() + (1 << 20)));
    ASSERT_EQ(0, truncate(dir.File("hole").c_str(), static_cast<off_t>(bytes.size())));
    const uint64_t size = bytes.size();
    const uint64_t cases[][2] = {{0, size}, {16, size - 16}, {16, size - 15}, {size, 0},
                                 {size, 1}, {size + 5, 1},   {100, 1}};
    const auto check = [&](const char* name, const char* how) {
        const IQA::ScopedFd fd(IQA::OpenRegularFile(dir.File(name).c_str(), O_RDONLY));
        for (const auto& c : cases) {
            Bytes all(c[1]);
            const bool read = IQA::ReadFully(fd.get(), c[0], all.data(), all.size());
            std::fill(buffer.begin(), buffer.end(), 0xCC);
            EXPECT_EQ(read, IQA::ReadThrough(fd.get(), c[0], c[1], buffer.data(), 4096))
                << name << " " << how << " " << c[0] << "+" << c[1];
            if (read && std::string(name) == "r") {
                EXPECT_EQ(Bytes(buffer.size(), 0xCC), buffer) << how << " " << c[0] << "+" << c[1];
            }
        }
        IQA::SetFileCallHook([](const IQA::FileCallInfo& info, size_t*) {
            return info.call == IQA::FileCall::kRead && info.offset > (1 << 20) ? EIO : 0;
        });
        EXPECT_FALSE(IQA::ReadThrough(fd.get(), 0, size, buffer.data(), 4096)) << name << how;
        IQA::SetFileCallHook(nullptr);
    };
    check("r", "in memory");
    check("hole", "spliced");
    // A descriptor that cannot be read fails at once: a read error other than an interruption is
    // never retried.
    const IQA::ScopedFd writeOnly(open(dir.File("r").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(IQA::ReadFully(writeOnly.get(), 0, buffer.data(), 10));
    EXPECT_FALSE(IQA::ReadThrough(writeOnly.get(), 0, 10, buffer.data(), 4096));
    const int lowest = dup(0);  // every descriptor from it on is taken once "r" and "hole" are
    close(lowest);
    struct rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const struct rlimit none = {static_cast<rlim_t>(lowest) + 1, limit.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    check("r", "in memory, no pipe");
    check("hole", "read");
    setrlimit(RLIMIT_NOFILE, &limit);
}

// The decoder's source says where libjpeg stands in the file: right behind the scan's header once
// the header is read (past a segment of the largest size, so in the source's second block), which
// is where the check of a one-scan photo's data starts.
TEST_F(Decoders, SourceStandsBehindTheScanHeader) {
    Bytes jpeg = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(64 * 40 * 3, 3), 64, 40, 3, 90);
    Bytes segment = {0xFF, 0xE9, 0xFF, 0xFF};
    segment.resize(2 + 0xFFFF, 0);
    jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
    const unsigned char sos[] = {0xFF, 0xDA};  // the standard tables hold no 0xFF byte
    const size_t at =
        static_cast<size_t>(std::search(jpeg.begin(), jpeg.end(), sos, sos + 2) - jpeg.begin());
    Write("s.jpg", jpeg);
    FILE* file = fopen(dir.File("s.jpg").c_str(), "rb");
    ASSERT_NE(nullptr, file);
    jpeg_decompress_struct cinfo = {};
    jpeg_error_mgr errors = {};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&cinfo);
    IQA::UseFileSource(&cinfo, file);
    jpeg_read_header(&cinfo, TRUE);
    EXPECT_EQ(at + 2 + (jpeg[at + 2] << 8 | jpeg[at + 3]), IQA::SourceOffset(&cinfo));
    jpeg_destroy_decompress(&cinfo);
    fclose(file);
}

TEST_F(Decoders, JpegDecodesFullSizeRgbAndGreyscale) {
    const Bytes rgb = iqa_test::RandomBytes(64 * 40 * 3, 9);
    Bytes jpeg = iqa_tools::EncodeJpeg(rgb, 64, 40, 3, 90);
    // Two application segments of the largest size, which libjpeg skips across several reads.
    for (int i = 0; i < 2; ++i) {
        Bytes segment = {0xFF, 0xE9, 0xFF, 0xFF};
        segment.resize(2 + 0xFFFF, 0);
        jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
    }
    // A comment and stray bytes behind the image data, found only by reading on to the end.
    jpeg.insert(jpeg.end() - 2, {0xFF, 0xFE, 0x00, 0x04, 'h', 'i', 0x12, 0x34});
    Write("c.jpg", jpeg);
    Bytes expected;
    int ew = 0, eh = 0;
    ASSERT_TRUE(iqa_tools::DecodeJpeg(jpeg, &expected, &ew, &eh));
    EXPECT_EQ(64 * 40, Jpeg("c.jpg", 64 * 40 * 3));
    EXPECT_EQ(expected, Bytes(buffer.begin(), buffer.begin() + 64 * 40 * 3));
    EXPECT_EQ(0xCC, buffer[64 * 40 * 3]);
    EXPECT_EQ((std::vector<std::string>{
                  "[JpegDecoder]:output width 64, height 40, components 3\n",
                  "[JpegDecoder]:Corrupt JPEG data: 2 extraneous bytes before marker 0xd9"}),
              log.Lines());

    // A greyscale photo is expanded to RGB: three equal bytes a pixel, within capacity.
    const Bytes grey = iqa_test::RandomBytes(30 * 20, 10);
    Write("g.jpg", iqa_tools::EncodeJpeg(grey, 30, 20, 1, 90));
    EXPECT_EQ(0, Jpeg("g.jpg", 30 * 20 * 3 - 1));
    EXPECT_EQ(30 * 20, Jpeg("g.jpg", 30 * 20 * 3));
    for (int i = 0; i < 30 * 20; ++i) {
        ASSERT_EQ(buffer[3 * i], buffer[3 * i + 1]);
        ASSERT_EQ(buffer[3 * i], buffer[3 * i + 2]);
    }
}

// Each failure returns no pixels, leaves the sizes alone and says what went wrong at ERROR
// priority; libjpeg's fatal errors come back as a failed decode.
TEST_F(Decoders, FailuresAreRecoveredAndSaidExactly) {
    const size_t descriptors = iqa_test::OpenDescriptors();
    const Bytes thumb = iqa_tools::ThumbnailFile(100, 100, Bytes(100 * 100 * 3, 1));
    const Bytes jpeg = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(64 * 64 * 3, 11), 64, 64, 3, 90);
    const Bytes noise = iqa_test::RandomBytes(4000, 12);
    Bytes corrupt = {0xFF, 0xD8};  // a start marker and then noise: no frame header ever comes
    corrupt.insert(corrupt.end(), noise.begin(), noise.end());
    const std::string at = dir.File("");  // realpath leaves what it resolved in the line
    const unsigned long long all = buffer.size();
    const struct {
        bool isJpeg;
        std::string name;
        Bytes bytes;
        unsigned long long capacity;
        std::string lines;  // one per line
    } cases[] = {
        {false, "missing", {}, all, "[ThumbnailDecoder]:Failed to resolve path" + at + "missing."},
        {false, "short", Bytes(thumb.begin(), thumb.begin() + 15), all,
         "[ThumbnailDecoder]:Failed to read file header: " + at + "short."},
        {false, "one_byte", Bytes(thumb.begin(), thumb.end() - 1), all,
         "[ThumbnailDecoder]:Failed to read file : " + at + "one_byte."},
        {false, "rgb_fits", thumb, 30000,
         "[ThumbnailDecoder]:buffer size too small!"},  // raw: 40000
        {false, "negative", iqa_test::ThumbnailHeaderOnly(-5, 7), all,
         "[ThumbnailDecoder]:buffer size too small!"},
        {false, "wraps", iqa_test::ThumbnailHeaderOnly(INT_MIN, INT_MIN), ULLONG_MAX,  // 4wh = 2^64
         "[ThumbnailDecoder]:buffer size too small!"},
        {true, "missing", {}, all, "[JpegDecoder]:Failed to resolve path."},
        {true, "small", jpeg, 64 * 64 * 3 - 1,
         "[JpegDecoder]:IqaProcessData JpegDecoder: buf size too small!"},
        {true, "header_only", Bytes(jpeg.begin(), jpeg.begin() + 20), all,
         "[JpegDecoder]:Premature end of JPEG file\n"
         "[JpegDecoder]:JPEG datastream contains no image"},
        {true, "corrupt", corrupt, all,
         "[JpegDecoder]:Corrupt JPEG data: 125 extraneous bytes before marker 0x50\n"
         "[JpegDecoder]:Unsupported marker type 0x50"},
        {true, "empty", {}, all, "[JpegDecoder]:Empty input file"},
        {true, "not_jpeg", noise, all, "[JpegDecoder]:Not a JPEG file: starts with 0x4b 0x9b"},
        // Four components: libjpeg cannot convert CMYK to RGB.
        {true, "cmyk", iqa_tools::EncodeJpeg(iqa_test::RandomBytes(16 * 16 * 4, 13), 16, 16, 4, 90),
         all, "[JpegDecoder]:Unsupported color conversion request"},
    };
    for (const auto& c : cases) {
        if (c.name != "missing") {
            Write(c.name, c.bytes);
        }
        for (const bool inRun : {false, true}) {
            log.Clear();
            EXPECT_EQ(0, c.isJpeg ? Jpeg(c.name, c.capacity) : Thumb(c.name, c.capacity, inRun))
                << c.name;
            EXPECT_EQ(-7, width);
            std::string said;
            for (const std::string& line : log.Lines()) {
                said += (said.empty() ? "" : "\n") + line;
            }
            EXPECT_EQ(c.lines, said) << c.name << (inRun ? " in a run" : "");
            for (const iqa_test::LogEntry& e : log.Entries()) {
                EXPECT_EQ(ANDROID_LOG_ERROR, e.priority) << e.message;
            }
        }
    }
    // No error, but no pixels either.
    Write("zero", iqa_test::ThumbnailHeaderOnly(0, 9));
    EXPECT_EQ(0, Thumb("zero", buffer.size()));
    EXPECT_EQ("[ThumbnailDecoder]:output width 0, height 9\n", log.Lines().back());

    // A truncated photo still decodes and says so: its end reads as an EOI marker, as in
    // libjpeg's own sources. It is larger than one 64 KiB read, so that the marker is not written
    // over the start of the file's data.
    const Bytes large =
        iqa_tools::EncodeJpeg(iqa_test::RandomBytes(512 * 512 * 3, 14), 512, 512, 3, 90);
    Write("truncated",
          Bytes(large.begin(), large.begin() + static_cast<long>(large.size() * 3 / 4)));
    log.Clear();
    EXPECT_EQ(512 * 512, Jpeg("truncated", buffer.size()));
    EXPECT_EQ(
        (std::vector<std::string>{"[JpegDecoder]:output width 512, height 512, components 3\n",
                                  "[JpegDecoder]:Premature end of JPEG file"}),
        log.Lines());
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().back().priority);
    Bytes expected;
    ASSERT_TRUE(iqa_tools::DecodeJpeg(iqa_test::ReadFile(dir.File("truncated")), &expected, &width,
                                      &height));
    EXPECT_EQ(expected, Bytes(buffer.begin(), buffer.begin() + 512 * 512 * 3));
    EXPECT_EQ(descriptors, iqa_test::OpenDescriptors()) << "a decoder left a file open";
}

}  // namespace
