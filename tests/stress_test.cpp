// Many host threads registering, beginning and stopping while batch runs execute over real
// files, and managers destroyed mid-run. Run under ThreadSanitizer in CI.
#include <gtest/gtest.h>

#include <cstring>
#include <iostream>
#include <random>
#include <thread>

#include "IqaTaskManager.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerPeer.h"
#include "tests/support/TestFiles.h"
#include "tools/CameraFiles.h"
#include "tools/SceneGenerator.h"

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

}  // namespace
