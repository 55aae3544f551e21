// Batch runs over real camera folders: order, threshold, checkpoints, backup and dump.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "IqaTaskManager.h"
#include "common/JpegStream.h"
#include "process/BlockSsim.h"
#include "process/PairRecord.h"
#include "process/Preparation.h"
#include "process/ThumbnailFile.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerPeer.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"

using iqa_test::Bytes;
using iqa_test::Peer;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define IQA_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define IQA_TEST_SANITIZED 1
#endif
#endif

#ifndef IQA_TEST_SANITIZED
// This test binary's malloc, which the library's calls reach too: the next allocation of exactly
// gFailSize bytes fails, once; every other is glibc's. A sanitizer's allocator would take its
// place, so it exists only without one.
std::atomic<size_t> gFailSize{0};
extern "C" void* __libc_malloc(size_t size);
extern "C" void* malloc(size_t size) {
    size_t failing = size;
    if (size != 0 && gFailSize.compare_exchange_strong(failing, 0)) {
        return nullptr;
    }
    return __libc_malloc(size);
}
#endif

namespace {

using iqa_test::BackupThumb;
using iqa_test::CachedThumb;
using iqa_test::kCamera;
using iqa_test::PhotoPath;

class BatchRun : public ::testing::Test {
  protected:
    BatchRun() { iqa_test::MakeDirs(kCamera + "/cache"); }

    // A photo of width x height with a one-record trailer, and its thumbnail (scale 1/k).
    Bytes AddPhoto(const std::string& name, int width, int height, uint32_t seed) {
        const Bytes file = iqa_test::CameraPhoto(
            iqa_test::RandomBytes(static_cast<size_t>(width) * height * 3, seed), width, height);
        iqa_test::WriteFile(PhotoPath(name), file);
        return file;
    }
    void AddThumb(const std::string& name, int width, int height, const Bytes& rgb) {
        iqa_test::WriteFile(CachedThumb(name), iqa_tools::ThumbnailFile(width, height, rgb));
    }
    void Register(const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            manager.RegisterTask(name);  // the test thread stands in for an idle worker
        }
    }
    std::vector<std::string> RunLines() {
        std::vector<std::string> lines;
        for (const iqa_test::LogEntry& e : log.Entries()) {
            if (e.tag == "IqaDebug-TaskManager" &&
                iqa_test::StripLine(e.message).rfind("[IqaProc]", 0) == 0) {
                lines.push_back(iqa_test::StripLine(e.message));
            }
        }
        return lines;
    }

    iqa_test::ScopedWorkDir work;
    iqa_test::LogCapture log;
    IQA::IqaTaskManager manager;
};

TEST_F(BatchRun, LastInFirstOutAndTheThresholdEdges) {
    // 0.9 as a double is above the single-precision 0.9; the widened float itself is not.
    const double widened = static_cast<double>(0.9f);
    std::vector<double> scores = {0.9, widened, 0.0};
    std::atomic<size_t> next{0};
    Peer::Chain(manager) = {std::make_shared<iqa_test::ScriptedNode>([&](IqaImageInfo& info) {
        EXPECT_EQ(64000000u, info.bufferSize) << "the run's buffers as a node sees them";
        return iqa_test::ScoreNode(scores[next++])->ProcessImage(info);
    })};
    const Bytes before = AddPhoto("b", 32, 24, 1);
    AddPhoto("c", 32, 24, 2);
    Register({"a", "b", "c"});
    manager.SetStopStatus(true);  // left over from before: BeginProcess clears it
    manager.BeginProcess();

    EXPECT_EQ((std::vector<std::string>{
                  "[IqaProc]:begin process 3 tasks",
                  "[IqaProc]:img " + PhotoPath("c") + " with high similarity : ssim 0.900000",
                  "[IqaProc]:img " + PhotoPath("b") + " with low similarity : ssim 0.900000"}),
              RunLines());
    EXPECT_TRUE(Peer::Tasks(manager).empty());
    EXPECT_EQ(3u, log.Count("[CopyThumbs]:Failed to back up."));
    EXPECT_TRUE(log.Contains("[RemoveFile]: " + BackupThumb("a") + " failed(IQA-getssim-end)"));

    // b's reply: the 16 x 16 pixels reduced to 4 x 4, NV12 of 24 bytes, in front of the camera's
    // record (which starts where the JPEG ends).
    Bytes painted(16 * 16 * 3);
    for (size_t i = 0; i < painted.size(); ++i) {
        painted[i] = static_cast<unsigned char>(i * 7);
    }
    const Bytes reduced = iqa_ref::Reduced(painted, 16, 4, 4);
    EXPECT_EQ(iqa_ref::WithRecord(before, before.size() - 40 - 12 - 9 - 24,
                                  iqa_ref::Nv12(reduced.data(), 4, 4),
                                  {4, 4, 4, 24, 1, "Iqa_comparessim", {}}),
              iqa_test::ReadFile(PhotoPath("b")));
}

TEST_F(BatchRun, StopCheckpoints) {
    // Checkpoint 2: the stop arrives while the chain runs, after its last stage.
    Peer::Chain(manager) = {std::make_shared<iqa_test::ScriptedNode>([&](IqaImageInfo& info) {
        manager.SetStopStatus(true);
        return iqa_test::ScoreNode(0.5)->ProcessImage(info);
    })};
    AddThumb("a", 8, 8, Bytes(8 * 8 * 3, 1));
    AddThumb("b", 8, 8, Bytes(8 * 8 * 3, 1));
    const Bytes photoB = AddPhoto("b", 16, 16, 3);
    Register({"a", "b"});
    manager.BeginProcess();
    EXPECT_EQ((std::vector<std::string>{"[IqaProc]:begin process 2 tasks",
                                        "[IqaProc]:interrupt current task's upload: b"}),
              RunLines());
    EXPECT_EQ((std::vector<std::string>{"a"}), Peer::Tasks(manager));
    EXPECT_FALSE(IsFileExists(BackupThumb("b")));
    EXPECT_EQ(photoB, iqa_test::ReadFile(PhotoPath("b")));  // nothing dumped

    // Checkpoint 1: the stop arrives as the next thumbnail is being backed up.
    log.Clear();
    Peer::Chain(manager) = {iqa_test::ScoreNode(0.99)};
    Register({"c"});
    AddThumb("c", 8, 8, Bytes(8 * 8 * 3, 1));
    log.OnLine([&](const std::string& line) {
        if (line == "[CopyThumbs]:begin back up" && log.Count(line) == 2) {
            manager.SetStopStatus(true);
        }
    });
    manager.BeginProcess();
    log.OnLine(nullptr);
    EXPECT_EQ((std::vector<std::string>{
                  "[IqaProc]:begin process 2 tasks",
                  "[IqaProc]:img " + PhotoPath("c") + " with high similarity : ssim 0.990000",
                  "[IqaProc]:interrupt current task: a"}),
              RunLines());
    EXPECT_EQ((std::vector<std::string>{"a"}), Peer::Tasks(manager));
    EXPECT_TRUE(IsFileExists(BackupThumb("a")));  // kept for the next run
    EXPECT_FALSE(IsFileExists(CachedThumb("a")));

    // The next run evaluates a from its backup copy.
    log.Clear();
    manager.BeginProcess();
    EXPECT_TRUE(log.Contains("[CopyThumbs]:Failed to back up."));
    EXPECT_EQ("[IqaProc]:img " + PhotoPath("a") + " with high similarity : ssim 0.990000",
              RunLines().back());
    EXPECT_FALSE(IsFileExists(BackupThumb("a")));
}

TEST_F(BatchRun, StopInsideTheChainPutsTheNameBack) {
    Peer::Chain(manager) = {std::make_shared<iqa_test::ScriptedNode>([&](IqaImageInfo&) {
                                manager.SetStopStatus(true);
                                return true;
                            }),
                            iqa_test::ScoreNode(0.99)};
    AddThumb("a", 8, 8, Bytes(8 * 8 * 3, 1));
    Register({"a"});
    manager.BeginProcess();
    EXPECT_EQ((std::vector<std::string>{"[IqaProc]:begin process 1 tasks",
                                        "[IqaProc]:interrupt current task: a"}),
              RunLines());
    EXPECT_EQ((std::vector<std::string>{"a"}), Peer::Tasks(manager));
    EXPECT_FALSE(IsFileExists(BackupThumb("a")));  // deleted after the interrupted chain

    // An empty chain computes nothing: the record's zero SSIM is no result.
    log.Clear();
    Peer::Chain(manager).clear();
    manager.BeginProcess();
    EXPECT_EQ((std::vector<std::string>{"[IqaProc]:begin process 1 tasks"}), RunLines());
    EXPECT_TRUE(Peer::Tasks(manager).empty());
    log.Clear();
    manager.BeginProcess();  // nothing registered: no run at all
    EXPECT_TRUE(RunLines().empty());
}

TEST_F(BatchRun, ReplySizesAndTooSmallImages) {
    const Bytes before = AddPhoto("r", 16, 16, 4);
    const Bytes pixels = iqa_test::RandomBytes(1000 * 760 * 3, 5);
    log.Clear();
    manager.IqaReply("r", pixels.data(), 3, 900);  // a reduced side of 0: nothing to dump
    manager.IqaReply("r", pixels.data(), 900, 3);
    EXPECT_EQ((std::vector<std::string>{"[IqaReply]:no image to dump for r: reduced size 0 x 225",
                                        "[IqaReply]:no image to dump for r: reduced size 225 x 0"}),
              log.Lines());
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().back().priority);
    EXPECT_EQ(before, iqa_test::ReadFile(PhotoPath("r")));

    manager.IqaReply("r", pixels.data(), 1000, 760);  // k = 4: 1000 x 760 to 250 x 190
    const Bytes reduced = iqa_ref::Reduced(pixels, 1000, 250, 190);
    EXPECT_EQ(
        iqa_ref::WithRecord(before, before.size() - 85, iqa_ref::Nv12(reduced.data(), 250, 190),
                            {250, 190, 250, 250 * 190 * 3 / 2, 1, "Iqa_comparessim", {}}),
        iqa_test::ReadFile(PhotoPath("r")));
}

// Each of the reply's three blocks failing alone: one line, nothing dumped, no pixel read.
TEST_F(BatchRun, AReplyWithoutOneOfItsBlocksDumpsNothing) {
#ifdef IQA_TEST_SANITIZED
    GTEST_SKIP() << "under a sanitizer no allocation can be made to fail";
#else
    const Bytes before = AddPhoto("r", 16, 16, 4);
    const Bytes pixels = iqa_test::RandomBytes(64 * 48 * 3, 5);
    // 16 x 12 reduced: 576 RGB bytes, 288 NV12 bytes, then the 120-byte descriptor.
    for (const size_t failing : {size_t{576}, size_t{288}, sizeof(IQA::ImageDumpExpand)}) {
        log.Clear();
        gFailSize = failing;
        manager.IqaReply("r", pixels.data(), 64, 48);
        EXPECT_EQ(0u, gFailSize.exchange(0)) << "no allocation of " << failing << " bytes";
        EXPECT_EQ((std::vector<std::string>{"[IqaReply]:memory allocation failed"}), log.Lines())
            << failing;
        EXPECT_EQ(before, iqa_test::ReadFile(PhotoPath("r"))) << failing;
    }
#endif
}

TEST_F(BatchRun, AThumbnailCutShortAfterItsSsimIsNotDumped) {
    // The run keeps only what the SSIM reads of the thumbnail; the reply reads the rest again,
    // here after another process has cut the backup short.
    const Bytes photo = AddPhoto("t", 640, 480, 6);
    AddThumb("t", 160, 120, iqa_test::RandomBytes(160 * 120 * 3, 7));  // unrelated: low
    log.OnLine([&](const std::string& line) {
        if (line.rfind("[ProcessImage]:ssim result", 0) == 0) {
            ASSERT_EQ(0, truncate(BackupThumb("t").c_str(), 16 + 160 * 120 * 2));
        }
    });
    Register({"t"});
    manager.BeginProcess();
    log.OnLine(nullptr);
    EXPECT_EQ(1u, log.Count("[ThumbnailDecoder]:Failed to read file : " + BackupThumb("t") + "."));
    EXPECT_NE(std::string::npos, RunLines().back().find("with low similarity"));
    EXPECT_EQ(photo, iqa_test::ReadFile(PhotoPath("t")));  // nothing dumped
}

// Decodes that are cut short (damaged data, rows and columns the reduction leaves out) must leave
// nothing behind for the next photo: each photo of a mixed batch logs exactly what it logs when
// it is evaluated alone.
TEST_F(BatchRun, AMixedBatchLogsEachPhotoAsItsOwnRunDoes) {
    const int w = 700, h = 131;
    const Bytes scene = iqa_tools::RenderScene(w, h, 4);
    const Bytes whole = iqa_test::CameraPhoto(scene, w, h);
    const Bytes thumb = iqa_ref::Reduced(scene, w, 64, 12);
    Bytes damaged = whole;
    for (size_t i = whole.size() / 2; i < whole.size() / 2 + 32; ++i) {
        damaged[i] ^= 0xA5;
    }
    const struct {
        const char* name;
        Bytes photo;
        int tw, th;
    } photos[] = {
        // Progressive, so decoded to its end: its last row is the first the SSIM does not need.
        {"odd",
         iqa_test::CameraPhoto(iqa_tools::RenderScene(1003, 31, 5), 1003, 31, Bytes(40, 7),
                               Bytes(9, 8), {true, 0, false}),
         100, 13},
        {"cut", Bytes(whole.begin(), whole.begin() + static_cast<long>(whole.size() * 9 / 10)), 64,
         12},
        {"damaged", damaged, 64, 12},
        {"larger_thumb", iqa_test::CameraPhoto(Bytes(40 * 30 * 3, 90), 40, 30), 64, 12},
        {"whole", whole, 64, 12}};
    std::vector<std::string> names(std::size(photos));
    std::transform(std::begin(photos), std::end(photos), names.begin(),
                   [](const auto& p) { return p.name; });
    // The lines of a run over fresh copies of the photos, after its "begin process" line.
    const auto run = [&](const std::vector<std::string>& batch) {
        for (const auto& p : photos) {
            AddThumb(p.name, p.tw, p.th, p.tw == 64 ? thumb : Bytes(p.tw * p.th * 3, 60));
            iqa_test::WriteFile(PhotoPath(p.name), p.photo);
        }
        Register(batch);
        log.Clear();
        manager.BeginProcess();
        const std::vector<std::string> lines = log.Lines();
        return std::vector<std::string>(lines.begin() + 1, lines.end());
    };
    std::vector<std::string> alone;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {  // taken last in, first out
        const std::vector<std::string> lines = run({*name});
        alone.insert(alone.end(), lines.begin(), lines.end());
    }
    EXPECT_EQ(alone, run(names));
}

// A host's node, after the library's own stages: both buffers must read as cleared behind the
// bytes this photo wrote (the thumbnail's raw 4 bytes a pixel, compacted in place), photo after
// photo, each thumbnail smaller than the one before (names are taken from the back), and last a
// photo smaller than its thumbnail, which nothing reduces in its buffer.
TEST_F(BatchRun, AHostsNodeSeesBuffersClearedBehindThePhotosPixels) {
    struct Observer : IQA::IqaProcessNode {
        static bool ZeroFrom(const unsigned char* buffer, size_t from, size_t size) {
            return std::all_of(buffer + from, buffer + size,
                               [](unsigned char b) { return b == 0; });
        }
        bool ProcessImage(IqaImageInfo& info) override {
            const size_t thumbBytes = static_cast<size_t>(info.thumbWidth) * info.thumbHeight * 4;
            const size_t photoBytes = static_cast<size_t>(info.jpegWidth) * info.jpegHeight * 3;
            cleared.push_back(ZeroFrom(info.thumbBuffer, thumbBytes, info.bufferSize) &&
                              ZeroFrom(info.jpegBuffer, photoBytes, info.bufferSize));
            return true;
        }
        std::vector<bool> cleared;
    };
    const auto observer = std::make_shared<Observer>();
    manager.AddIqaProcessNode(observer);
    for (const auto& [name, pw, ph, w, h] : {std::tuple{"p0", 16, 12, 32, 24},
                                             {"p1", 64, 48, 10, 8},
                                             {"p2", 64, 48, 12, 9},
                                             {"p3", 64, 48, 16, 12}}) {
        AddPhoto(name, pw, ph, 3);
        AddThumb(name, w, h, iqa_test::RandomBytes(w * h * 3, 4));
    }
    Register({"p0", "p1", "p2", "p3"});
    manager.BeginProcess();
    EXPECT_EQ(std::vector<bool>(4, true), observer->cleared);
}

// The entropy-coded data of a JPEG's last scan: from the end of its SOS segment to the marker
// that ends it. The test encoder writes no fill bytes.
std::pair<size_t, size_t> LastScanData(const Bytes& jpeg) {
    std::pair<size_t, size_t> scan;
    for (size_t i = 2; jpeg[i + 1] != 0xD9;) {
        const bool sos = jpeg[i + 1] == 0xDA;
        i += 2 + (static_cast<size_t>(jpeg[i + 2]) << 8 | jpeg[i + 3]);
        if (sos) {
            for (scan.first = i;
                 jpeg[i] != 0xFF || jpeg[i + 1] == 0 || (jpeg[i + 1] & 0xF8) == 0xD0; ++i) {
            }
            scan.second = i;
        }
    }
    return scan;
}

// A damage done at (or just after) offset `at` of a photo's last scan, where no 0xFF pair is cut.
using Damage = std::function<Bytes(Bytes photo, size_t at)>;

Damage Insert(const Bytes& bytes) {
    return [bytes](Bytes photo, size_t at) {
        photo.insert(photo.begin() + static_cast<long>(at), bytes.begin(), bytes.end());
        return photo;
    };
}

Bytes FlipBits(Bytes photo, size_t at) {
    for (int flipped = 0; flipped < 32; ++at) {
        if (photo[at] != 0xFF && photo[at - 1] != 0xFF && (photo[at] ^ 0x24) != 0xFF) {
            photo[at] ^= 0x24;
            ++flipped;
        }
    }
    return photo;
}

// A photo's outcome as the SSIM stage sees it: decoded or not, the SSIM the prepared buffers
// give against the thumbnail, and the lines logged meanwhile.
struct Outcome {
    bool ok;
    double ssim;
    std::vector<std::string> lines;
};

// One photo (p.jpg, 640 x 480) and its 160 x 120 thumbnail, evaluated three ways: a whole decode
// reduced plainly, the preparation stage on a host's record, and the stage as a batch run drives
// it, which reconstructs only the 160 rows whose reduced bytes the SSIM reads.
class DemandDriven : public BatchRun {
  protected:
    static constexpr int kWidth = 640, kHeight = 480, kThumbWidth = 160, kThumbHeight = 120;
    static constexpr unsigned long long kCapacity = 4 << 20;

    void Put(const Bytes& photo) {
        AddThumb("p", kThumbWidth, kThumbHeight, thumb);
        iqa_test::WriteFile(PhotoPath("p"), photo);
    }
    Outcome Whole() {
        log.Clear();
        int w = 0, h = 0;
        Bytes decoded(kCapacity), reduced(kThumbWidth * kThumbHeight * 3);
        const bool ok = IQA::IqaProcessData().JpegDecoder(PhotoPath("p").c_str(), decoded.data(),
                                                          kCapacity, &w, &h) > 0;
        iqa_ref::DownScale(decoded.data(), w, h, reduced.data(), kThumbWidth, kThumbHeight);
        return {ok, ok ? Ssim(thumb.data(), reduced.data()) : 0.0, log.Lines()};
    }
    Outcome Prepared(bool run) {
        Bytes first(kCapacity), second(kCapacity);
        IQA::RunBuffer firstRun{first.data(), kCapacity}, secondRun{second.data(), kCapacity};
        IqaImageInfo info = IQA::PairRecord("p", CachedThumb("p"), PhotoPath("p"),
                                            {first.data(), second.data(), kCapacity});
        log.Clear();
        const bool ok = run ? IQA::Prepare(info, {&firstRun, &secondRun, IQA::BlockSsimReach})
                            : IQA::IqaProcessData().ProcessImage(info);
        const double ssim = ok ? Ssim(first.data(), second.data()) : 0.0;
        IQA::FinishThumbnail(&firstRun);  // what the reply then dumps from
        EXPECT_TRUE(!ok || std::equal(thumb.begin(), thumb.end(), first.begin()));
        return {ok, ssim, log.Lines()};
    }
    // The run's lines and the photo file afterwards; `full`: a chain that must do the whole work.
    std::pair<std::vector<std::string>, Bytes> Batch(const Bytes& photo, bool full) {
        Put(photo);
        Peer::Chain(manager) = {std::make_shared<IQA::IqaProcessData>(),
                                std::make_shared<IQA::IqaCompSim>()};
        if (full) {
            Peer::Chain(manager).push_back(
                std::make_shared<iqa_test::ScriptedNode>([](IqaImageInfo&) { return true; }));
        }
        log.Clear();
        Register({"p"});
        manager.BeginProcess();
        return {RunLines(), iqa_test::ReadFile(PhotoPath("p"))};
    }
    static double Ssim(const unsigned char* a, const unsigned char* b) {
        return IQA::IqaCompSim().CalculateRgbSsim(a, b, kThumbWidth, kThumbHeight);
    }
    // Lines of the decoder alone, or all lines with the decoder's warnings left out.
    static std::vector<std::string> Only(std::vector<std::string> lines, bool decoder) {
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [&](const std::string& l) {
                                       const bool jpeg = l.rfind("[JpegDecoder]:", 0) == 0;
                                       return decoder
                                                  ? !jpeg
                                                  : jpeg && l.rfind("[JpegDecoder]:output", 0) != 0;
                                   }),
                    lines.end());
        return lines;
    }

    const Bytes scene = iqa_tools::RenderScene(kWidth, kHeight, 21);
    const Bytes thumb = iqa_ref::Reduced(scene, kWidth, kThumbWidth, kThumbHeight);
};

// Damage anywhere gives the outcome of a whole decode: success or failure, the SSIM bit for bit,
// the thumbnail the reply dumps, the run's lines and the photo file; and every log line, except
// warnings about the entropy-coded data of rows the result does not use in a file whose
// structure is intact, which a decode that stops early never reads. The host path logs exactly
// what a whole decode logs. Each form is done above (at 10% of the scan's data) and below (80%)
// the rows the result uses.
TEST_F(DemandDriven, DamageAnywhereGivesTheOutcomeOfAWholeDecode) {
    const Bytes plain = iqa_test::CameraPhoto(scene, kWidth, kHeight);
    const Bytes restarts =
        iqa_test::CameraPhoto(scene, kWidth, kHeight, Bytes(40, 7), Bytes(9, 8), {false, 5, false});
    const Bytes progressive =
        iqa_test::CameraPhoto(scene, kWidth, kHeight, Bytes(40, 7), Bytes(9, 8), {true, 0, false});
    // An HDR photo of another scene, so that its record goes in: a gain map behind the
    // primary's EOI, then the trailer.
    const Bytes gain = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(160 * 120, 4), 160, 120, 1, 80);
    Bytes hdr = iqa_tools::MultiPictureJpeg(
        iqa_tools::EncodeJpeg(iqa_tools::RenderScene(kWidth, kHeight, 22), kWidth, kHeight, 3, 90,
                              {false, 5, false}),
        {{0, gain}});
    const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", Bytes(40, 7)}}, Bytes(9, 8));
    hdr.insert(hdr.end(), trailer.begin(), trailer.end());
    // Noise: the scan's data runs over several of the decoder's 64 KiB reads before the rows the
    // result uses end, so damage 70000 bytes on arrives in a later read.
    const Bytes noisy =
        iqa_test::CameraPhoto(iqa_test::RandomBytes(kWidth * kHeight * 3, 6), kWidth, kHeight,
                              Bytes(40, 7), Bytes(9, 8), {false, 0, true});
    const unsigned char kSof0[] = {0xFF, 0xC0};
    const auto sof = std::search(plain.begin(), plain.end(), std::begin(kSof0), std::end(kSof0));
    const struct {
        const char* form;
        const Bytes& photo;
        Damage damage;
        bool quieterBelow;  // structure intact: only the data of unused rows is damaged
    } forms[] = {
        {"unknown marker", restarts, Insert({0xFF, 0x05}), false},
        {"unknown marker, in a later read", noisy,
         [](Bytes p, size_t at) {
             for (at += 70000; p[at - 1] == 0xFF || p[at] == 0xFF; ++at) {
             }
             return Insert({0xFF, 0x05})(p, at);
         },
         false},
        {"stray DHT", restarts, Insert({0xFF, 0xC4, 0x00, 0x02}), false},
        {"early EOI", plain, Insert({0xFF, 0xD9}), true},
        {"truncation", restarts,
         [](Bytes p, size_t at) { return Bytes(p.begin(), p.begin() + static_cast<long>(at)); },
         false},
        {"flipped bits", restarts, FlipBits, true},
        {"flipped bits, gain map behind", hdr, FlipBits, true},
        {"wrong restart marker", restarts,
         [](Bytes p, size_t at) {
             while (p[at] != 0xFF || (p[at + 1] & 0xF8) != 0xD0) {
                 ++at;
             }
             p[at + 1] = static_cast<unsigned char>(0xD0 | ((p[at + 1] + 3) & 7));
             return p;
         },
         false},
        {"SOF after the scan", plain, Insert(Bytes(sof, sof + 2 + (sof[2] << 8 | sof[3]))), false},
        {"progressive, last scan", progressive, FlipBits, false},
    };
    for (const auto& f : forms) {
        const auto [begin, end] = LastScanData(f.photo);
        for (const bool below : {false, true}) {
            size_t at = begin + (end - begin) * (below ? 8 : 1) / 10;
            while (f.photo[at - 1] == 0xFF || f.photo[at] == 0xFF) {
                ++at;
            }
            const Bytes photo = f.damage(f.photo, at);
            const std::string what = std::string(f.form) + (below ? " below" : " above");
            Put(photo);
            const Outcome whole = Whole(), host = Prepared(false), run = Prepared(true);
            ASSERT_EQ((std::vector<bool>{whole.ok, whole.ok}), (std::vector<bool>{host.ok, run.ok}))
                << what;
            EXPECT_EQ((std::vector<double>{whole.ssim, whole.ssim}),
                      (std::vector<double>{host.ssim, run.ssim}))
                << what;
            EXPECT_EQ(whole.lines, Only(host.lines, true)) << what;
            const bool quieter = below && f.quieterBelow;
            EXPECT_EQ(quieter ? Only(host.lines, false) : host.lines, run.lines) << what;
            EXPECT_EQ(quieter, host.lines != run.lines) << what << ": no warning went unread";
            const auto batch = Batch(photo, false);
            EXPECT_EQ(Batch(photo, true), batch) << what;
            EXPECT_TRUE(&f.photo != &hdr || batch.second.size() > photo.size()) << what;
        }
    }
}

// The check that lets a batch run stop decoding, fed its data split at every byte: the verdict,
// and when it stops asking for more, do not depend on where libjpeg's reads happen to end.
TEST(ScanCheck, TheVerdictDoesNotDependOnWhereReadsEnd) {
    const struct {
        const char* name;
        unsigned interval;
        uint64_t mcus;  // with an interval of 2, 6 MCUs make two restart markers
        Bytes data;
        size_t end;  // the byte that ends the data: the code after an 0xFF that is neither a
                     // stuffed byte nor the next restart (fill bytes passed over)
        bool eoi;
    } cases[] = {
        {"stuffed", 0, 1, {1, 0xFF, 0x00, 2, 0xFF, 0xFF, 0x00, 3, 0xFF, 0xD9}, 9, true},
        {"restarts_in_order", 2, 6, {1, 0xFF, 0xD0, 2, 0xFF, 0xD1, 3, 0xFF, 0xD9}, 8, true},
        {"restarts_out_of_order", 2, 6, {1, 0xFF, 0xD1, 2, 0xFF, 0xD0, 3, 0xFF, 0xD9}, 2, false},
        {"a_restart_missing", 2, 6, {1, 0xFF, 0xD0, 2, 0xFF, 0xD9}, 5, false},
        {"another_marker", 0, 1, {1, 0xFF, 0xC4, 0xFF, 0xD9}, 2, false},
        {"no_end", 0, 1, {1, 0xFF, 0x00, 2, 0xFF}, 5, false},
    };
    for (const auto& c : cases) {
        for (size_t split = 0; split <= c.data.size(); ++split) {
            IQA::ScanCheck check(c.interval, c.mcus);
            EXPECT_EQ(split <= c.end, check.Feed(c.data.data(), split)) << c.name << " " << split;
            EXPECT_EQ(c.end == c.data.size(),
                      check.Feed(c.data.data() + split, c.data.size() - split))
                << c.name << " " << split;
            EXPECT_EQ(c.eoi, check.EndsAtEoi()) << c.name << " " << split;
        }
    }
}

}  // namespace
