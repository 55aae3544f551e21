// A dump cut short at any instant, by the process dying or by an I/O error, leaves a photo that
// recovery turns into the original or the original plus exactly the new record, and that a
// second recovery leaves alone. The cuts go through the library's own file-call hook.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>

#include "DumpJournal.h"
#include "FileCalls.h"
#include "IqaTaskManager.h"
#include "IqaUpLoad.h"
#include "LogCapture.h"
#include "SceneGenerator.h"
#include "TestFiles.h"
#include "reference/ReferenceDump.h"

using iqa_test::Bytes;
using iqa_test::kCamera;

namespace {

// What the hook does, and at which of the dump's file calls (counted from 0).
struct Plan {
    enum Mode { kCount, kDieAt, kDieInsideWrite, kFailOnce, kFailFrom } mode = kCount;
    int call = -1;
    size_t bytes = 0;  // kDieInsideWrite: how much of the write reaches the file
    int error = 0;
};

Plan gPlan;
int gCalls = 0;
std::vector<std::pair<int, size_t>> gWrites;  // kCount: (call, bytes) of every write

int Hook(IQA::FileCall call, size_t* count) {
    const int k = gCalls++;
    switch (gPlan.mode) {
        case Plan::kCount:
            if (call == IQA::FileCall::kWrite) {
                gWrites.push_back({k, *count});
            }
            return 0;
        case Plan::kDieAt:
            if (k == gPlan.call) {
                _exit(0);
            }
            return 0;
        case Plan::kDieInsideWrite:
            if (k > gPlan.call) {  // the write's remainder, or whatever came next
                _exit(0);
            }
            *count = k == gPlan.call ? gPlan.bytes : *count;
            return 0;
        case Plan::kFailOnce:
            return k == gPlan.call ? gPlan.error : 0;
        case Plan::kFailFrom:
            return k >= gPlan.call ? gPlan.error : 0;
    }
    return 0;
}

// Byte counts after which a write of n bytes is cut: every one of the first and last 64, and
// every 4 KiB between.
std::vector<size_t> CutsOf(size_t n) {
    std::vector<size_t> cuts;
    for (size_t b = 1; b < n; ++b) {
        if (b <= 64 || b >= n - 64 || b % 4096 == 0) {
            cuts.push_back(b);
        }
    }
    return cuts;
}

class CutDump : public ::testing::Test {
  protected:
    CutDump() {
        iqa_test::MakeDirs(kCamera);
        const int w = 96, h = 64;
        original =
            iqa_test::CameraPhoto(iqa_tools::RenderScene(w, h, 3), w, h,
                                  iqa_test::RandomBytes(9000, 1), iqa_test::RandomBytes(16, 2));
        const size_t last = iqa_ref::LastRecordIfWhole(original, iqa_ref::JpegEnd(original));
        withRecord = iqa_ref::WithRecord(original, last, custom, descriptor);
    }

    // Puts the original photo back and dumps into it under the plan, in this process.
    void Dump(const Plan& plan) {
        iqa_test::WriteFile(photo, original);
        gPlan = plan;
        gCalls = 0;
        IQA::SetFileCallHook(Hook);
        IQA::ImageDumpExpand d = descriptor;
        IQA::IqaUpLoad().SaveCustomBuffer(photo, custom.data(), &d);
        IQA::SetFileCallHook(nullptr);
    }

    // The same in a child process that the plan ends; false if it hangs or ends otherwise.
    bool DumpInChild(const Plan& plan) {
        int done[2];
        if (pipe(done) != 0) {
            return false;
        }
        const pid_t child = fork();
        if (child == 0) {
            close(done[0]);
            Dump(plan);
            _exit(0);
        }
        close(done[1]);
        pollfd end = {done[0], POLLIN, 0};
        const bool ended = poll(&end, 1, 30000) == 1;  // the pipe closes as the child ends
        close(done[0]);
        if (!ended) {
            kill(child, SIGKILL);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

    // Recovers twice: the photo must be `expected` (or either form when none is given) after the
    // first time, and the second time must find nothing to do and leave no journal behind.
    bool RecoverTo(const Bytes* expected) {
        IQA::RecoverDumps(kCamera);
        const Bytes once = iqa_test::ReadFile(photo);
        const IQA::Recovery again = IQA::RecoverDumps(kCamera);
        std::error_code none;  // no journal folder at all is clean too
        const bool clean = std::filesystem::is_empty(IQA::JournalFolder(kCamera), none) || none;
        const bool whole =
            expected != nullptr ? once == *expected : once == original || once == withRecord;
        const bool idle = again.completed == 0 && again.discarded == 0 && again.kept == 0;
        return whole && clean && idle && iqa_test::ReadFile(photo) == once;
    }

    iqa_test::ScopedWorkDir work{iqa_test::Storage::kMemory};  // thousands of fsyncs
    iqa_test::LogCapture log;
    const std::string photo = kCamera + "/p.jpg";
    const Bytes custom = iqa_test::RandomBytes(576, 3);
    const IQA::ImageDumpExpand descriptor = {24, 16, 24, 576, 1, "Iqa_comparessim", {}};
    Bytes original, withRecord;
};

TEST_F(CutDump, EveryCrashAndEveryErrorIsRecoverable) {
    gWrites.clear();
    Dump(Plan{});
    ASSERT_EQ(withRecord, iqa_test::ReadFile(photo)) << "the uncut dump";
    const int calls = gCalls;
    ASSERT_GT(calls, 5);
    int points = 0, torn = 0;

    std::vector<Plan> crashes;
    for (int k = 0; k < calls; ++k) {
        crashes.push_back(Plan{Plan::kDieAt, k, 0, 0});
    }
    for (const auto& [call, bytes] : gWrites) {
        for (size_t b : CutsOf(bytes)) {
            crashes.push_back(Plan{Plan::kDieInsideWrite, call, b, 0});
        }
    }
    for (const Plan& plan : crashes) {
        ASSERT_TRUE(DumpInChild(plan)) << "call " << plan.call << ": the child hung or failed";
        ++points;
        if (!RecoverTo(nullptr)) {
            ++torn;
            ADD_FAILURE() << "torn after a crash at call " << plan.call << " (+" << plan.bytes
                          << " bytes)";
        }
    }

    const std::string saved = "[SaveCustomBuffer]:save custombuffer in " + photo + ".";
    const std::string pending = "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: Failed to write " +
                                photo + ", the next recovery completes it.";
    for (int error : {ENOSPC, EIO, EFBIG}) {
        for (Plan::Mode mode : {Plan::kFailOnce, Plan::kFailFrom}) {
            for (int k = 0; k < calls; ++k) {
                log.Clear();
                Dump(Plan{mode, k, 0, error});
                ++points;
                // The dump's last line says how it left the photo.
                const std::string said = log.Lines().back();
                const bool recorded = said == saved || said == pending;
                const bool asSaid = said == pending ||
                                    iqa_test::ReadFile(photo) == (recorded ? withRecord : original);
                if (!asSaid || !RecoverTo(recorded ? &withRecord : &original)) {
                    ++torn;
                    ADD_FAILURE() << "error " << error << " at call " << k << ": " << said;
                }
            }
        }
    }
    EXPECT_EQ(0, torn);
    std::cout << crashes.size() << " crash points and " << points - crashes.size()
              << " error points over " << calls << " file calls and " << gWrites.size()
              << " writes: " << torn << " torn\n";
}

TEST_F(CutDump, AStartingWorkerCompletesAnInterruptedDump) {
    gWrites.clear();
    Dump(Plan{});
    const auto [photoWrite, bytes] = gWrites.back();  // the photo's own write comes last
    ASSERT_TRUE(DumpInChild(Plan{Plan::kDieInsideWrite, photoWrite, bytes / 2, 0}));
    ASSERT_NE(withRecord, iqa_test::ReadFile(photo));

    IQA::IqaTaskManager manager;
    manager.AddRequest(Request{REQUEST_REGISTER_TASK, "x", false});
    ASSERT_TRUE(log.WaitFor("[RecoverDumps]:completed the record in " + photo));
    EXPECT_EQ(withRecord, iqa_test::ReadFile(photo));
}

}  // namespace
