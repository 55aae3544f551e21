// Many host threads registering, beginning and stopping while batch runs execute over real
// files, and managers destroyed mid-run. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <malloc.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <thread>

#include "IqaAnomDetect.h"
#include "IqaTaskManager.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerPeer.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define IQA_HAS_SANITIZER 1
#endif
#endif
#ifndef IQA_HAS_SANITIZER
#define IQA_HAS_SANITIZER 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || IQA_HAS_SANITIZER
#include <sanitizer/allocator_interface.h>
#endif

using iqa_test::Bytes;

namespace {

constexpr int kPhotos = 12;
constexpr int kHostThreads = 4;
constexpr int kRounds = 4;
constexpr int kRequestsPerThread = 200;

std::string Name(int i) {
    return "IMG_" + std::to_string(i);
}
using iqa_test::BackupThumb;
using iqa_test::CachedThumb;
using iqa_test::kCamera;
using iqa_test::PhotoPath;

class Stress : public ::testing::Test {
  protected:
    Stress() {
        for (int i = 0; i < kPhotos; ++i) {
            const Bytes scene = iqa_tools::RenderScene(64, 48, static_cast<uint32_t>(i));
            originals.push_back(iqa_test::AddCameraPhoto(
                "", Name(i), scene, 64, 48,
                i % 2 ? scene : iqa_tools::RenderScene(64, 48, 1000 + i), 16, 12));
        }
    }

    // One host thread: a random mix of the requests a camera host sends.
    static void Host(IQA::IqaTaskManager& manager, uint32_t seed) {
        std::mt19937 rng(seed);
        for (int n = 0; n < kRequestsPerThread; ++n) {
            const unsigned roll = rng() % 10;
            if (roll < 5) {
                manager.AddRequest(Request{REQUEST_REGISTER_TASK, Name(rng() % kPhotos), false});
            } else if (roll < 8) {
                manager.AddRequest(Request{REQUEST_BEGIN_PROCESS, "", false});
            } else if (roll < 9) {
                manager.AddRequest(Request{REQUEST_STOP, "", rng() % 2 == 0});
            } else {
                manager.SetStopStatus(rng() % 4 == 0);
            }
            std::this_thread::yield();
        }
    }

    iqa_test::ScopedWorkDir work;
    iqa_test::LogCapture log;
    std::vector<Bytes> originals;
};

TEST_F(Stress, HostThreadsAndDestructionDuringRuns) {
    for (int round = 0; round < kRounds; ++round) {
        auto manager = std::make_unique<IQA::IqaTaskManager>();
        std::vector<std::thread> hosts;
        for (int t = 0; t < kHostThreads; ++t) {
            hosts.emplace_back(Host, std::ref(*manager), static_cast<uint32_t>(round * 100 + t));
        }
        for (std::thread& h : hosts) {
            h.join();
        }
        // End every round by destroying the manager during a run: once a registration has been
        // worked off the list is not empty, so the begin request is not dropped.
        const std::string last = Name(round);
        const auto settled = [&](const std::string& l) {
            return l == "[RegisterTask]:Task list is full. Cannot register task: " + last ||
                   l.rfind("[RegisterTask]:Task registered: " + last + " ,", 0) == 0;
        };
        const auto started = [](const std::string& l) {
            return l.rfind("[IqaProc]:begin process", 0) == 0;
        };
        ASSERT_TRUE(iqa_test::Eventually(  // a queued stop would discard what comes next
            [&] { return iqa_test::Peer::Queued(*manager) == 0; },
            "the worker emptying its queue"));
        const size_t registrations = log.CountMatches(settled);
        manager->AddRequest(Request{REQUEST_REGISTER_TASK, last, false});
        ASSERT_TRUE(log.WaitForMatches(settled, registrations + 1, "the registration of " + last));
        const size_t runs = log.CountMatches(started);
        manager->AddRequest(Request{REQUEST_BEGIN_PROCESS, "", false});
        ASSERT_TRUE(log.WaitForMatches(started, runs + 1, "the start of a batch run"));
        manager.reset();
    }

    const auto startsWith = [&](const std::string& prefix) {
        return log.CountMatches([&](const std::string& l) { return l.rfind(prefix, 0) == 0; });
    };
    for (int i = 0; i < kPhotos; ++i) {
        const std::string name = Name(i);
        // A thumbnail is in the cache, in the backup folder, or was deleted after the chain ran.
        const bool kept = IsFileExists(CachedThumb(name)) || IsFileExists(BackupThumb(name));
        EXPECT_TRUE(kept ||
                    log.Contains("[RemoveFile]: " + BackupThumb(name) + " ok(IQA-getssim-end)"))
            << name;
        // A photo whose thumbnail is gone was accounted for: evaluated (with or without a
        // result) or interrupted inside or after the chain. One whose thumbnail is kept is
        // still listed, or can be registered again.
        const bool accounted = startsWith("[IqaProc]:img " + PhotoPath(name) + " with ") > 0 ||
                               log.Contains("[GetSsim]:GetSsim error: " + name) ||
                               log.Contains("[GetSsim]:interrupt current task's procss: " + name) ||
                               log.Contains("[IqaProc]:interrupt current task's upload: " + name);
        EXPECT_TRUE(kept || accounted) << name;
        // A photo is unchanged or holds exactly one new record in front of its own, after a low
        // verdict.
        const Bytes after = iqa_test::ReadFile(PhotoPath(name));
        if (after != originals[i]) {
            // Checked with the tests' own reference walk, not the library's.
            const std::vector<iqa_ref::Record> records =
                iqa_ref::RecordsIfWhole(after, iqa_ref::ImageEnds(after));
            ASSERT_EQ(2u, records.size()) << name;
            EXPECT_EQ(0,
                      std::memcmp(&after[records[1].offset + records[1].length + 4], "Iqa_com", 8));
            EXPECT_EQ(originals[i].size() + 20 + 132, after.size());
            EXPECT_GT(startsWith("[IqaProc]:img " + PhotoPath(name) + " with low"), 0u) << name;
        }
    }
    const size_t runs = startsWith("[IqaProc]:begin process");
    EXPECT_GT(runs, 0u) << "no batch run was exercised";
    std::cerr << runs << " batch runs, " << log.Lines().size() << " log lines\n";
    EXPECT_EQ(static_cast<size_t>(kRounds), log.Count("[~IqaTaskManager]:end IqaTaskManager"));
}

// Live heap bytes: what the sanitizer's allocator holds under a sanitizer, else glibc's count
// of bytes in use (arena and mapped).
size_t LiveHeapBytes() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || IQA_HAS_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

// A camera host that runs for days: one process, one manager, 300 batch runs of the sample's mix
// (a high verdict, a low one with its dump, a photo without a thumbnail, a corrupt photo), then
// 300 anomaly checks. Descriptors and the live heap stay where the first run left them, and
// every thumbnail is accounted for: deleted after its photo was evaluated, never left behind.
TEST(LongRunningHost, HoldsNoDescriptorOrMemoryAcrossRuns) {
    constexpr int kRuns = 300;
    constexpr size_t kHeapSlack = 16 << 10;  // allocator bookkeeping, not a leak of any size
    const iqa_test::ScopedWorkDir work(iqa_test::Storage::kMemory);
    iqa_test::LogCapture log;
    const Bytes scene = iqa_tools::RenderScene(64, 48, 1);
    const Bytes other = iqa_tools::RenderScene(64, 48, 2);
    iqa_test::AddCameraPhoto("", "high", scene, 64, 48, scene, 16, 12);
    iqa_test::AddCameraPhoto("", "low", scene, 64, 48, other, 16, 12);
    iqa_test::AddCameraPhoto("", "corrupt", scene, 64, 48, scene, 16, 12);
    iqa_test::WriteFile(PhotoPath("corrupt"), Bytes(300, 0xFF));
    std::map<std::string, Bytes> thumbs;
    for (const std::string name : {"high", "low", "corrupt"}) {
        thumbs[name] = iqa_test::ReadFile(CachedThumb(name));
    }
    const std::string last = "[IqaProc]:img " + PhotoPath("high") + " with high similarity";
    const auto isLast = [&](const std::string& l) { return l.rfind(last, 0) == 0; };
    IQA::IqaTaskManager manager;
    size_t descriptors = 0, heap = 0;
    for (int run = 0; run < kRuns; ++run) {
        log.Clear();
        for (const auto& [name, bytes] : thumbs) {
            iqa_test::WriteFile(CachedThumb(name), bytes);
        }
        for (const std::string name : {"high", "low", "none", "corrupt"}) {  // last in, first out
            manager.AddRequest(Request{REQUEST_REGISTER_TASK, name, false});
        }
        // A begin request finds the names registered only once the worker has taken them.
        ASSERT_TRUE(log.WaitForMatches(
            [](const std::string& l) {
                return l.rfind("[RegisterTask]:Task registered: ", 0) == 0;
            },
            4, "the registrations of run " + std::to_string(run)));
        // A begin request finds the names registered only once the worker has taken them.
        ASSERT_TRUE(log.WaitForMatches(
            [](const std::string& l) {
                return l.rfind("[RegisterTask]:Task registered: ", 0) == 0;
            },
            4, "the registrations of run " + std::to_string(run)));
        if (run == 1) {  // the first run is over
            descriptors = iqa_test::OpenDescriptors(), heap = LiveHeapBytes();
        }
        manager.AddRequest(Request{REQUEST_BEGIN_PROCESS, "", false});
        ASSERT_TRUE(log.WaitForMatches(isLast, 1, "the end of batch run " + std::to_string(run)));
        ASSERT_EQ(1u, log.CountMatches([](const std::string& l) {
            return l.rfind("[SaveCustomBuffer]:save custombuffer in ", 0) == 0;
        })) << run;
        ASSERT_EQ(2u, log.CountMatches([](const std::string& l) {
            return l.rfind("[GetSsim]:GetSsim error: ", 0) == 0;
        })) << run;
        ASSERT_EQ(0u, log.CountMatches([](const std::string& l) {
            return l.find("return error(") != std::string::npos;
        })) << "a refused bounded copy in run "
            << run;
        for (const std::string name : {"high", "low", "corrupt"}) {
            ASSERT_TRUE(log.Contains("[RemoveFile]: " + BackupThumb(name) + " ok(IQA-getssim-end)"))
                << name << " in run " << run;
        }
    }
    // A run's last line comes before it lets go of its buffers and files; the worker takes the
    // next request only once the run has returned.
    manager.AddRequest(Request{REQUEST_REGISTER_TASK, "settled", false});
    ASSERT_TRUE(log.WaitFor("[RegisterTask]:Task registered: settled , task nums: 1"));
    log.Clear();
    EXPECT_EQ(descriptors, iqa_test::OpenDescriptors()) << "descriptors left open by batch runs";
    EXPECT_LE(LiveHeapBytes(), heap + kHeapSlack) << "memory kept by batch runs";
    EXPECT_EQ(0u, std::distance(std::filesystem::directory_iterator(kCamera + "/cache"), {}));

    const Bytes green(64 * 48 * 3 / 2, 0);
    for (int call = 0; call < kRuns; ++call) {
        log.Clear();
        IQA::IqaAnomDetect().AnomDetect(green.data(), 64, 48, 64, "frame.jpg");
        ASSERT_TRUE(log.Contains("[UpLoadBigData]:upload bigdata of frame.jpg.")) << call;
        if (call == 0) {
            heap = LiveHeapBytes();
        }
    }
    log.Clear();
    EXPECT_EQ(descriptors, iqa_test::OpenDescriptors()) << "descriptors left open by the detector";
    EXPECT_LE(LiveHeapBytes(), heap + kHeapSlack) << "memory kept by the detector";
}

}  // namespace
