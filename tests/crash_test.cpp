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
#include <functional>

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

// What the hook does at the dump's k-th file call (counted from 0): 0 lets the call run, an
// errno value fails it; it may also shorten a write or end the process.
using Action = std::function<int(int k, IQA::FileCall call, size_t* count)>;
Action gAction;
int gCalls = 0;

int Hook(IQA::FileCall call, size_t* count) {
    return gAction(gCalls++, call, count);
}

// Ends the process at call `at`: before it, or once `bytes` of its write have reached the file.
Action Cut(int at, size_t bytes) {
    return [=](int k, IQA::FileCall, size_t* count) {
        if (k > at || (k == at && bytes == 0)) {
            _exit(0);
        }
        *count = k == at ? bytes : *count;
        return 0;
    };
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

    // Puts the original photo back and dumps into it under the action, in this process.
    void Dump(const Action& action) {
        iqa_test::WriteFile(photo, original);
        gAction = action;
        gCalls = 0;
        IQA::SetFileCallHook(Hook);
        IQA::ImageDumpExpand d = descriptor;
        IQA::IqaUpLoad().SaveCustomBuffer(photo, custom.data(), &d);
        IQA::SetFileCallHook(nullptr);
    }

    // The same in a child process that the action ends; false if it hangs or ends otherwise.
    bool DumpInChild(const Action& action) {
        int done[2];
        if (pipe(done) != 0) {
            return false;
        }
        const pid_t child = fork();
        if (child == 0) {
            close(done[0]);
            Dump(action);
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

    // (call, bytes) of every write of an uncut dump.
    std::vector<std::pair<int, size_t>> CountWrites() {
        std::vector<std::pair<int, size_t>> writes;
        Dump([&](int k, IQA::FileCall call, size_t* count) {
            if (call == IQA::FileCall::kWrite) {
                writes.push_back({k, *count});
            }
            return 0;
        });
        return writes;
    }

    iqa_test::ScopedWorkDir work{iqa_test::Storage::kMemory};  // thousands of fsyncs
    iqa_test::LogCapture log;
    const std::string photo = kCamera + "/p.jpg";
    const Bytes custom = iqa_test::RandomBytes(576, 3);
    const IQA::ImageDumpExpand descriptor = {24, 16, 24, 576, 1, "Iqa_comparessim", {}};
    Bytes original, withRecord;
};

TEST_F(CutDump, EveryCrashAndEveryErrorIsRecoverable) {
    const std::vector<std::pair<int, size_t>> writes = CountWrites();
    ASSERT_EQ(withRecord, iqa_test::ReadFile(photo)) << "the uncut dump";
    const int calls = gCalls;
    ASSERT_GT(calls, 5);
    int points = 0, torn = 0;

    std::vector<std::pair<int, size_t>> crashes;  // (call, bytes of it written)
    for (int k = 0; k < calls; ++k) {
        crashes.push_back({k, 0});
    }
    // Inside each write: after every one of its first and last 64 bytes, and every 4 KiB between.
    for (const auto& [call, bytes] : writes) {
        for (size_t b = 1; b < bytes; ++b) {
            if (b <= 64 || b >= bytes - 64 || b % 4096 == 0) {
                crashes.push_back({call, b});
            }
        }
    }
    for (const auto& [call, bytes] : crashes) {
        ASSERT_TRUE(DumpInChild(Cut(call, bytes)))
            << "call " << call << ": the child hung or failed";
        ++points;
        if (!RecoverTo(nullptr)) {
            ++torn;
            ADD_FAILURE() << "torn after a crash at call " << call << " (+" << bytes << " bytes)";
        }
    }

    const std::string saved = "[SaveCustomBuffer]:save custombuffer in " + photo + ".";
    const std::string pending = "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: Failed to write " +
                                photo + ", the next recovery completes it.";
    for (int error : {ENOSPC, EIO, EFBIG}) {
        for (bool persistent : {false, true}) {
            for (int k = 0; k < calls; ++k) {
                log.Clear();
                Dump([=](int call, IQA::FileCall, size_t*) {
                    return (persistent ? call >= k : call == k) ? error : 0;
                });
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
              << " error points over " << calls << " file calls and " << writes.size()
              << " writes: " << torn << " torn\n";
}

TEST_F(CutDump, AStartingWorkerCompletesAnInterruptedDump) {
    const auto [photoWrite, bytes] = CountWrites().back();  // the photo's own write comes last
    ASSERT_TRUE(DumpInChild(Cut(photoWrite, bytes / 2)));
    ASSERT_NE(withRecord, iqa_test::ReadFile(photo));

    IQA::IqaTaskManager manager;
    manager.AddRequest(Request{REQUEST_REGISTER_TASK, "x", false});
    ASSERT_TRUE(log.WaitFor("[RecoverDumps]:completed the record in " + photo));
    EXPECT_EQ(withRecord, iqa_test::ReadFile(photo));
}

}  // namespace
