// A dump cut short at any instant, by the process dying, by a power cut or by an I/O error,
// leaves a photo that recovery turns into the original or the original plus exactly the new
// record, in place or in a copy of the camera root, and that a second recovery leaves alone. The
// cuts go through the library's own file-call hook.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>

#include "IqaTaskManager.h"
#include "IqaUpLoad.h"
#include "common/FileCalls.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"
#include "upload/DumpJournal.h"

using iqa_test::Bytes;
using iqa_test::kCamera;

namespace {

namespace fs = std::filesystem;

// What the hook does at the dump's k-th file call (counted from 0): 0 lets the call run, an
// errno value fails it; it may also shorten a write or end the process.
using Action = std::function<int(int k, const IQA::FileCallInfo& info, size_t* count)>;
Action gAction;
int gCalls = 0;

int Hook(const IQA::FileCallInfo& info, size_t* count) {
    return gAction(gCalls++, info, count);
}

// Ends the process at call `at`: before it, or once `bytes` of its write have reached the file.
Action Cut(int at, size_t bytes) {
    return [=](int k, const IQA::FileCallInfo&, size_t* count) {
        if (k > at || (k == at && bytes == 0)) {
            _exit(0);
        }
        *count = k == at ? bytes : *count;
        return 0;
    };
}

// One file call of a dump: the file or folder it is on, by its name then.
struct Step {
    IQA::FileCall call;
    std::string path, to;  // to: a rename's new name
    uint64_t offset = 0;
    Bytes data;  // a write's bytes
};

std::string Parent(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// What storage holds after a power cut, of a folder whose files a dump changes. A file's bytes
// last as of its last sync, a folder's entries (creations, renames, unlinks) as of the folder's
// own last sync; a disk that reorders what it was given may also have kept any one write since
// a file's last sync, on its own.
class Storage {
  public:
    Storage(const std::string& folder, const std::map<std::string, Bytes>& files) {
        seen_[folder] = synced_[folder] = kFolder;
        for (const auto& [name, bytes] : files) {
            seen_[name] = synced_[name] = static_cast<int>(files_.size());
            files_.push_back({bytes, bytes, {}});
        }
    }
    void Apply(const Step& step) {
        switch (step.call) {
            case IQA::FileCall::kCreate:
                seen_[step.path] = static_cast<int>(files_.size());
                files_.push_back({});
                break;
            case IQA::FileCall::kMakeFolder:
                seen_.emplace(step.path, kFolder);
                break;
            case IQA::FileCall::kWrite: {
                File& file = files_[static_cast<size_t>(seen_.at(step.path))];
                Write(&file.seen, step);
                file.unsynced.push_back(step);
                break;
            }
            case IQA::FileCall::kSync: {
                File& file = files_[static_cast<size_t>(seen_.at(step.path))];
                file.synced = file.seen;
                file.unsynced.clear();
                break;
            }
            case IQA::FileCall::kSyncFolder:
                SyncEntries(step.path);
                break;
            case IQA::FileCall::kRename:
                seen_[step.to] = seen_.at(step.path);
                seen_.erase(step.path);
                break;
            case IQA::FileCall::kUnlink:
                seen_.erase(step.path);
                break;
            default:  // reads, opens and reservations change nothing storage keeps
                break;
        }
    }
    // Each state storage may come back in: the synced one, then that with one write kept.
    std::vector<std::map<std::string, Bytes>> AfterPowerCut() const {
        std::vector<std::map<std::string, Bytes>> states = {Files(files_.size(), {})};
        for (size_t id = 0; id < files_.size(); ++id) {
            for (const Step& write : files_[id].unsynced) {
                Bytes kept = files_[id].synced;
                Write(&kept, write);
                states.push_back(Files(id, kept));
            }
        }
        return states;
    }

  private:
    static constexpr int kFolder = -1;
    struct File {
        Bytes synced, seen;
        std::vector<Step> unsynced;
    };
    static void Write(Bytes* bytes, const Step& step) {
        bytes->resize(std::max<size_t>(bytes->size(), step.offset + step.data.size()));
        std::copy(step.data.begin(), step.data.end(),
                  bytes->begin() + static_cast<long>(step.offset));
    }
    void SyncEntries(const std::string& folder) {
        for (auto it = synced_.begin(); it != synced_.end();) {
            it = Parent(it->first) == folder && !seen_.count(it->first) ? synced_.erase(it) : ++it;
        }
        for (const auto& [name, id] : seen_) {
            if (Parent(name) == folder) {
                synced_[name] = id;
            }
        }
    }
    // The synced files whose folders are there too, file `id` holding `bytes` instead.
    std::map<std::string, Bytes> Files(size_t id, const Bytes& bytes) const {
        std::map<std::string, Bytes> state;
        for (const auto& [name, file] : synced_) {
            if (file != kFolder && synced_.count(Parent(name))) {
                state[name] = static_cast<size_t>(file) == id
                                  ? bytes
                                  : files_[static_cast<size_t>(file)].synced;
            }
        }
        return state;
    }

    std::map<std::string, int> seen_, synced_;  // name -> file, or kFolder
    std::vector<File> files_;
};

class CutDump : public ::testing::Test {
  protected:
    CutDump() {
        iqa_test::MakeDirs(kCamera);
        const int w = 96, h = 64;
        original =
            iqa_test::CameraPhoto(iqa_tools::RenderScene(w, h, 3), w, h,
                                  iqa_test::RandomBytes(9000, 1), iqa_test::RandomBytes(16, 2));
        const size_t last = iqa_ref::LastRecordIfWhole(original);
        withRecord = iqa_ref::WithRecord(original, last, custom, descriptor);
    }

    // Puts the original photo back, without a journal folder (so every dump makes the same
    // calls, the folder's making included), and dumps into it under the action, in this process.
    void Dump(const Action& action) {
        iqa_test::WriteFile(photo, original);
        fs::remove_all(IQA::JournalFolder(kCamera));
        gAction = action;
        gCalls = 0;
        IQA::SetFileCallHook(Hook);
        IQA::ImageDumpExpand d = descriptor;
        IQA::IqaUpLoad().SaveCustomBuffer(photo, custom.data(), &d);
        IQA::SetFileCallHook(nullptr);
    }

    // Runs body(i) in `count` child processes at once; false if one hangs or ends otherwise
    // than by body's end (or an _exit(0) inside it).
    static bool InChildren(int count, const std::function<void(int)>& body) {
        std::vector<std::pair<pid_t, int>> children;  // pid, read end of a pipe it holds
        for (int i = 0; i < count; ++i) {
            int done[2];
            if (pipe(done) != 0) {
                return false;
            }
            const pid_t child = fork();
            if (child == 0) {
                close(done[0]);
                body(i);
                _exit(0);
            }
            close(done[1]);
            children.push_back({child, done[0]});
        }
        bool ok = true;
        for (const auto& [child, done] : children) {
            pollfd end = {done, POLLIN, 0};
            const bool ended = poll(&end, 1, 30000) == 1;  // the pipe closes as the child ends
            close(done);
            if (!ended) {
                kill(child, SIGKILL);
            }
            int status = 0;
            waitpid(child, &status, 0);
            ok = ok && ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
        }
        return ok;
    }
    bool DumpInChild(const Action& action) {
        return InChildren(1, [&](int) { Dump(action); });
    }

    // Recovers twice: the photo must be `expected` (or the original or `recordedForm`, by default
    // the dump's, when none is given) after the first time, and the second time must find nothing
    // to do and leave no journal behind.
    bool RecoverTo(const Bytes* expected, const Bytes* recordedForm = nullptr) {
        IQA::RecoverDumps(kCamera);
        const Bytes once = iqa_test::ReadFile(photo);
        const IQA::Recovery again = IQA::RecoverDumps(kCamera);
        const bool clean = IQA::PendingJournal(kCamera, "p.jpg").empty();  // thumbnails may stay
        const Bytes& recorded = recordedForm != nullptr ? *recordedForm : withRecord;
        const bool whole =
            expected != nullptr ? once == *expected : once == original || once == recorded;
        const bool idle = again.completed == 0 && again.discarded == 0 && again.kept == 0;
        return whole && clean && idle && iqa_test::ReadFile(photo) == once;
    }

    // Every file call of an uncut dump, with the name of the file each one is on.
    std::vector<Step> Record() {
        std::vector<Step> steps;
        Dump([&](int, const IQA::FileCallInfo& info, size_t* count) {
            Step step{info.call,
                      info.path != nullptr ? info.path : "",
                      info.to != nullptr ? info.to : "",
                      info.offset,
                      {}};
            if (info.fd >= 0) {
                step.path = fs::read_symlink("/proc/self/fd/" + std::to_string(info.fd));
            }
            if (info.call == IQA::FileCall::kWrite) {
                const auto* bytes = static_cast<const unsigned char*>(info.data);
                step.data.assign(bytes, bytes + *count);
            }
            steps.push_back(step);
            return 0;
        });
        return steps;
    }

    // Puts what storage holds after a power cut at `step` (`bytes` of it written, if a write)
    // into the camera folder; one state for each way storage may come back.
    std::vector<std::map<std::string, Bytes>> PowerCut(const std::vector<Step>& steps, int step,
                                                       size_t bytes) {
        const std::string folder = fs::absolute(kCamera);
        Storage storage(folder, {{folder + "/p.jpg", original}});
        for (int k = 0; k < step; ++k) {
            storage.Apply(steps[static_cast<size_t>(k)]);
        }
        if (bytes > 0) {
            Step part = steps[static_cast<size_t>(step)];
            part.data.resize(bytes);
            storage.Apply(part);
        }
        return storage.AfterPowerCut();
    }
    void Restore(const std::map<std::string, Bytes>& files) {
        fs::remove_all(kCamera);
        iqa_test::MakeDirs(kCamera);
        for (const auto& [name, bytes] : files) {
            iqa_test::MakeDirs(Parent(name));
            iqa_test::WriteFile(name, bytes);
        }
    }

    // Recovers a copy of the camera root, as a backup, a restore or a move to another volume
    // makes, where every file has another identity.
    bool RecoverCopy() {
        const std::string copy = work.path() + "/copy";
        fs::remove_all(copy);
        iqa_test::MakeDirs(copy + "/" + kCamera);
        fs::copy(kCamera, copy + "/" + kCamera, fs::copy_options::recursive);
        fs::current_path(copy);
        const bool whole = RecoverTo(nullptr);
        fs::current_path(work.path());
        return whole;
    }

    iqa_test::ScopedWorkDir work{iqa_test::Storage::kMemory};  // thousands of fsyncs
    iqa_test::LogCapture log;
    const std::string photo = kCamera + "/p.jpg";
    const Bytes custom = iqa_test::RandomBytes(576, 3);
    const IQA::ImageDumpExpand descriptor = {24, 16, 24, 576, 1, "Iqa_comparessim", {}};
    Bytes original, withRecord;
};

// At every crash point the process is killed, and recovery runs on a copy of the camera root,
// then in place; at the same points the power is cut instead, in every way storage may come back.
TEST_F(CutDump, EveryCrashPowerCutAndErrorIsRecoverable) {
    const std::vector<Step> steps = Record();
    ASSERT_EQ(withRecord, iqa_test::ReadFile(photo)) << "the uncut dump";
    const int calls = gCalls;
    ASSERT_GT(calls, 5);
    int points = 0, torn = 0, cuts = 0, cutTorn = 0;

    std::vector<std::pair<int, size_t>> crashes;  // (call, bytes of it written)
    for (int k = 0; k < calls; ++k) {
        crashes.push_back({k, 0});
    }
    // Inside each write: after every one of its first and last 64 bytes, and every 4 KiB between.
    int writes = 0;
    for (int k = 0; k < calls; ++k) {
        const size_t bytes = steps[static_cast<size_t>(k)].data.size();
        writes += steps[static_cast<size_t>(k)].call == IQA::FileCall::kWrite;
        for (size_t b = 1; b < bytes; ++b) {
            if (b <= 64 || b >= bytes - 64 || b % 4096 == 0) {
                crashes.push_back({k, b});
            }
        }
    }
    for (const auto& [call, bytes] : crashes) {
        ASSERT_TRUE(DumpInChild(Cut(call, bytes)))
            << "call " << call << ": the child hung or failed";
        ++points;
        if (!RecoverCopy() || !RecoverTo(nullptr)) {
            ++torn;
            ADD_FAILURE() << "torn after a crash at call " << call << " (+" << bytes << " bytes)";
        }
        for (const auto& files : PowerCut(steps, call, bytes)) {
            Restore(files);
            ++cuts;
            if (!RecoverTo(nullptr)) {
                ++cutTorn;
                ADD_FAILURE() << "torn after a power cut at call " << call << " (+" << bytes
                              << " bytes)";
            }
        }
    }

    const std::string saved = "[SaveCustomBuffer]:save custombuffer in " + photo + ".";
    const std::string pending = "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: Failed to write " +
                                photo + ", the next recovery completes it.";
    for (int error : {ENOSPC, EIO, EFBIG}) {
        for (bool persistent : {false, true}) {
            for (int k = 0; k < calls; ++k) {
                log.Clear();
                Dump([=](int call, const IQA::FileCallInfo&, size_t*) {
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
    EXPECT_EQ(0, torn + cutTorn);
    std::cout << crashes.size() << " crash points and " << points - crashes.size()
              << " error points over " << calls << " file calls and " << writes
              << " writes: " << torn << " torn; " << cuts << " power cuts: " << cutTorn
              << " torn\n";
}

// A torn photo is completed by the recovery a starting worker runs; one whose bytes in front of
// the insertion point changed since (another picture under the same name) is left alone.
TEST_F(CutDump, AStartingWorkerCompletesAnInterruptedDumpOfTheSamePhotoOnly) {
    const std::vector<Step> steps = Record();  // the photo's own write is the last write
    const auto last = std::find_if(steps.rbegin(), steps.rend(), [](const Step& step) {
        return step.call == IQA::FileCall::kWrite;
    });
    const int at = static_cast<int>(steps.rend() - last) - 1;
    ASSERT_TRUE(DumpInChild(Cut(at, last->data.size() / 2)));
    ASSERT_NE(withRecord, iqa_test::ReadFile(photo));
    Bytes replaced = iqa_test::ReadFile(photo);
    replaced[replaced.size() / 4] ^= 1;
    iqa_test::WriteFile(kCamera + "/q.jpg", replaced);
    fs::copy_file(IQA::JournalFolder(kCamera) + "/p.jpg.iqajournal",
                  IQA::JournalFolder(kCamera) + "/q.jpg.iqajournal");

    IQA::IqaTaskManager manager;
    manager.AddRequest(Request{REQUEST_REGISTER_TASK, "x", false});
    ASSERT_TRUE(log.WaitFor("[RecoverDumps]:completed the record in " + photo));
    ASSERT_TRUE(log.WaitFor("[RecoverDumps]:discarded the journal of " + kCamera +
                            "/q.jpg: the photo is gone or was replaced"));
    EXPECT_EQ(withRecord, iqa_test::ReadFile(photo));
    EXPECT_EQ(replaced, iqa_test::ReadFile(kCamera + "/q.jpg"));
}

// A batch run killed at any of its file calls, the thumbnail's backup move and its removal
// included, loses no thumbnail before its photo was evaluated and tears no photo: the thumbnail
// is in the cache or the backup folder until the removal, and recovery leaves the original or
// the original plus the run's record (the thumbnail, which disagrees, reduced to NV12).
TEST_F(CutDump, ABatchRunKilledAtAnyFileCallLosesNoThumbnail) {
    const Bytes thumb = iqa_test::RandomBytes(24 * 16 * 3, 5);
    const Bytes reduced = iqa_ref::Reduced(thumb, 24, 6, 4);
    const Bytes recorded = iqa_ref::WithRecord(original, iqa_ref::LastRecordIfWhole(original),
                                               iqa_ref::Nv12(reduced.data(), 6, 4),
                                               {6, 4, 6, 36, 1, "Iqa_comparessim", {}});
    iqa_test::MakeDirs(kCamera + "/cache");
    const auto batch = [&](const Action& action) {
        iqa_test::WriteFile(photo, original);
        iqa_test::WriteFile(iqa_test::CachedThumb("p"), iqa_tools::ThumbnailFile(24, 16, thumb));
        fs::remove_all(IQA::JournalFolder(kCamera));
        IQA::IqaTaskManager manager;
        manager.RegisterTask("p");
        gAction = action;
        gCalls = 0;
        IQA::SetFileCallHook(Hook);
        manager.BeginProcess();
        IQA::SetFileCallHook(nullptr);
    };
    int removal = -1;
    batch([&](int k, const IQA::FileCallInfo& info, size_t*) {
        const bool removes = info.call == IQA::FileCall::kUnlink &&
                             std::string(info.path) == iqa_test::BackupThumb("p");
        removal = removes ? k : removal;
        return 0;
    });
    ASSERT_EQ(recorded, iqa_test::ReadFile(photo)) << "the uncut run";
    ASSERT_GE(removal, 0);
    for (int k = 0, calls = gCalls; k < calls; ++k) {
        ASSERT_TRUE(InChildren(1, [&](int) { batch(Cut(k, 0)); })) << "call " << k;
        const bool kept =
            fs::exists(iqa_test::CachedThumb("p")) || fs::exists(iqa_test::BackupThumb("p"));
        EXPECT_TRUE(kept || k > removal) << "the thumbnail was lost at call " << k;
        EXPECT_TRUE(RecoverTo(nullptr, &recorded)) << "torn at call " << k;
    }
}

// Two processes each dump into the same photo many times at once. Each dump waits for the other
// one's to end and then finds the photo as it was left: the photo ends up as the original plus
// every record, each whole, in front of the camera's own, and its trailer walks back to the
// JPEG's end.
TEST_F(CutDump, TwoProcessesDumpingIntoOnePhotoNeverInterleave) {
    constexpr int kDumps = 20;
    iqa_test::WriteFile(photo, original);
    const auto buffer = [](int process, int i) {
        return Bytes(576, static_cast<unsigned char>(process * kDumps + i));
    };
    ASSERT_TRUE(InChildren(2, [&](int process) {
        for (int i = 0; i < kDumps; ++i) {
            IQA::ImageDumpExpand d = descriptor;
            IQA::IqaUpLoad().SaveCustomBuffer(photo, buffer(process, i).data(), &d);
        }
    }));
    const Bytes after = iqa_test::ReadFile(photo);
    std::vector<Bytes> payloads;
    for (const iqa_ref::Record& r : iqa_ref::RecordsIfWhole(after, iqa_ref::ImageEnds(after))) {
        payloads.emplace_back(after.begin() + static_cast<long>(r.offset),
                              after.begin() + static_cast<long>(r.offset + r.length));
    }
    ASSERT_EQ(2u * kDumps + 1, payloads.size()) << "a chain that does not close has none";
    EXPECT_EQ(iqa_test::RandomBytes(9000, 1), payloads.front());  // the camera's, still last
    std::vector<Bytes> expected;
    for (int process = 0; process < 2; ++process) {
        for (int i = 0; i < kDumps; ++i) {
            expected.push_back(buffer(process, i));
            const auto* d = reinterpret_cast<const unsigned char*>(&descriptor);
            expected.back().insert(expected.back().end(), d, d + sizeof(descriptor));
        }
    }
    std::sort(expected.begin(), expected.end());
    std::sort(payloads.begin() + 1, payloads.end());
    EXPECT_EQ(expected, std::vector<Bytes>(payloads.begin() + 1, payloads.end()));
}

}  // namespace
