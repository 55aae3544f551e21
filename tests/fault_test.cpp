// Real faults during batch runs: unreadable files and folders, files that vanish or shrink
// mid-run, and a file size limit hit by the dump. The run
// must go on with the next photo, say what happened, and leave every photo either unchanged or
// holding exactly the new record.
#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fcntl.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <future>

#include "IqaTaskManager.h"
#include "common/FileCalls.h"
#include "common/ScopedFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"
#include "upload/DumpJournal.h"

using iqa_test::Bytes;

namespace {

using iqa_test::CachedThumb;
using iqa_test::kCamera;
using iqa_test::PhotoPath;

// Root ignores permission bits through these capabilities; the tests need them obeyed. Only
// the effective set changes, so they can be given back afterwards.
void SetFileOverrides(bool enabled) {
    if (geteuid() != 0) {
        return;
    }
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    ASSERT_EQ(0, syscall(SYS_capget, &header, data));
    for (int cap : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER}) {
        const uint32_t bit = 1u << (cap % 32), others = data[cap / 32].effective & ~bit;
        data[cap / 32].effective = enabled ? others | bit : others;
    }
    ASSERT_EQ(0, syscall(SYS_capset, &header, data));
}

class Faults : public ::testing::Test {
  protected:
    Faults() {
        iqa_test::MakeDirs(kCamera + "/cache");
        SetFileOverrides(false);
    }
    ~Faults() override { SetFileOverrides(true); }

    // Registers photo `name` (64 x 48, with a trailer) and its 16 x 12 thumbnail; a matching
    // thumbnail gives high similarity, another frame low similarity and a dump.
    void AddPhoto(const std::string& name, bool matching) {
        const Bytes scene = iqa_tools::RenderScene(64, 48, 5);
        before[name] = iqa_test::AddCameraPhoto(
            "", name, scene, 64, 48, matching ? scene : iqa_tools::RenderScene(64, 48, 99), 16, 12);
        manager.RegisterTask(name);
    }
    std::string Verdict(const std::string& name) {
        for (const std::string verdict : {"high", "low"}) {
            const std::string line = "[IqaProc]:img " + PhotoPath(name) + " with " + verdict;
            if (log.CountMatches([&](const std::string& l) { return l.rfind(line, 0) == 0; })) {
                return verdict;
            }
        }
        return log.Contains("[GetSsim]:GetSsim error: " + name) ? "none" : "missing";
    }
    // The photo is as it was, or it holds exactly one new 4 x 3 NV12 record (12 luma bytes, two
    // chroma rows of 4 and 132 bytes of headers) in front of the camera's own record.
    void ExpectUnchangedOrOneRecord(const std::string& name, bool dumped) {
        Bytes after = iqa_test::ReadFile(PhotoPath(name));
        if (dumped) {
            ASSERT_EQ(before[name].size() + 20 + 132, after.size()) << name;
            const auto record = after.end() - (40 + 12 + 9 + 24) - (20 + 132);
            after.erase(record, record + 20 + 132);
        }
        EXPECT_EQ(before[name], after) << name;
    }

    iqa_test::ScopedWorkDir work;
    iqa_test::LogCapture log;
    IQA::IqaTaskManager manager;
    std::map<std::string, Bytes> before;
};

TEST_F(Faults, FilesRemovedOrTruncatedDuringTheRun) {
    AddPhoto("ok", false);
    AddPhoto("shrinks", false);
    AddPhoto("vanishes", true);
    // LIFO: "vanishes" is evaluated first, then "shrinks", then "ok".
    const size_t half = before["shrinks"].size() / 2;
    log.OnLine([&](const std::string& line) {
        const size_t n = line == "[CopyThumbs]:back up successfully" ? log.Count(line) : 0;
        if (n == 1) {
            std::filesystem::remove(kCamera + "/iqathumb/vanishes.thumbnail");
        } else if (n == 2) {
            std::filesystem::resize_file(PhotoPath("shrinks"), half);
        }
    });
    manager.BeginProcess();
    log.OnLine(nullptr);
    EXPECT_EQ("none", Verdict("vanishes"));
    EXPECT_EQ("low", Verdict("ok"));
    ExpectUnchangedOrOneRecord("ok", true);
    // The shrunken photo lost its trailer: whatever its verdict, nothing was written into it.
    before["shrinks"].resize(half);
    EXPECT_EQ(before["shrinks"], iqa_test::ReadFile(PhotoPath("shrinks")));
    EXPECT_NE("missing", Verdict("shrinks"));
}

TEST_F(Faults, FileSizeLimitDuringTheDump) {
    AddPhoto("full", false);
    AddPhoto("high", true);
    AddPhoto("also_full", false);
    struct rlimit old = {};
    getrlimit(RLIMIT_FSIZE, &old);
    ASSERT_EQ(SIG_DFL, signal(SIGXFSZ, SIG_DFL));  // a SIGXFSZ would end this test's process
    struct rlimit limit = old;
    limit.rlim_cur = before["full"].size() + 10;  // the photo cannot grow by a record
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    EXPECT_TRUE(IQA::WithinFileSizeLimit(limit.rlim_cur));
    EXPECT_FALSE(IQA::WithinFileSizeLimit(limit.rlim_cur + 1));
    manager.BeginProcess();
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ("low", Verdict("also_full"));
    EXPECT_EQ("high", Verdict("high"));
    EXPECT_EQ("low", Verdict("full"));
    for (const char* name : {"full", "also_full"}) {
        EXPECT_TRUE(log.Contains("[SaveCustomBuffer]:IqaUpLoad SaveBuffer: no space to grow " +
                                 PhotoPath(name) + "."));
        ExpectUnchangedOrOneRecord(name, false);
    }
}

// A reservation the file system cannot make does not stop a dump; one it refuses does, with
// the line that says why, and the photo is left as it was.
TEST_F(Faults, AReservationUnsupportedOrRefused) {
    static std::atomic<int> refusal{0};
    IQA::SetFileCallHook([](const IQA::FileCallInfo& info, size_t*) {
        return info.call == IQA::FileCall::kAllocate ? refusal.load() : 0;
    });
    const struct {
        int error;
        const char* line;  // before the photo's path
        bool dumped;
    } cases[] = {{EOPNOTSUPP, "save custombuffer in ", true},
                 {ENOSYS, "save custombuffer in ", true},
                 {ENOSPC, "IqaUpLoad SaveBuffer: no space to grow ", false},
                 {EDQUOT, "IqaUpLoad SaveBuffer: no space to grow ", false},
                 {EIO, "IqaUpLoad SaveBuffer: Failed to write ", false}};
    for (const auto& c : cases) {
        const std::string name = "r" + std::to_string(c.error);
        AddPhoto(name, false);
        refusal = c.error;
        manager.BeginProcess();
        EXPECT_EQ(1, log.CountMatches([&](const std::string& l) {
            return l.rfind("[SaveCustomBuffer]:" + std::string(c.line) + PhotoPath(name), 0) == 0;
        })) << c.error;
        ExpectUnchangedOrOneRecord(name, c.dumped);
    }
    IQA::SetFileCallHook(nullptr);
}

// Every file the library opens must be a regular file, opened without waiting, and no registered
// name may lead out of the camera folders: each case gets its step's own line and the run goes on.
TEST_F(Faults, HostileFileKindsAndNames) {
    const std::string outside = work.path() + "/elsewhere";
    iqa_test::MakeDirs(outside);
    iqa_test::WriteFile(outside + "/victim.thumbnail", {1, 2, 3});
    iqa_test::WriteFile(outside + "/victim.jpg", {4, 5, 6});
    const std::string backup = work.path() + "/" + kCamera + "/iqathumb/";
    const auto fifo = [](const std::string& path) { ASSERT_EQ(0, mkfifo(path.c_str(), 0644)); };
    const struct {
        const char* name;
        std::function<void(const std::string&)> make;
        std::string line;  // the step's own failure line
    } cases[] = {
        // five photos: as many as the registry holds
        {"thumb_fifo", [&](const std::string& n) { fifo(CachedThumb(n)); },
         "[ThumbnailDecoder]:can't open " + backup + "thumb_fifo.thumbnail."},
        {"thumb_folder", [&](const std::string& n) { iqa_test::MakeDirs(CachedThumb(n)); },
         "[ThumbnailDecoder]:can't open " + backup + "thumb_folder.thumbnail."},
        {"thumb_device",
         [&](const std::string& n) { symlink("/dev/null", CachedThumb(n).c_str()); },
         "[ThumbnailDecoder]:can't open /dev/null."},
        {"photo_fifo", [&](const std::string& n) { fifo(PhotoPath(n)); },
         "[JpegDecoder]:can't open " + work.path() + "/" + PhotoPath("photo_fifo") + "."},
        {"photo_unreadable", [&](const std::string& n) { chmod(PhotoPath(n).c_str(), 0); },
         "[JpegDecoder]:can't open " + work.path() + "/" + PhotoPath("photo_unreadable") + "."},
        {"../../elsewhere/victim", nullptr,
         "[RegisterTask]:Task name is not a file name. Cannot register task: "
         "../../elsewhere/victim"},
        {"..", nullptr, "[RegisterTask]:Task name is not a file name. Cannot register task: .."},
        {"a/b", nullptr, "[RegisterTask]:Task name is not a file name. Cannot register task: a/b"},
    };
    for (const auto& c : cases) {
        if (c.make) {
            AddPhoto(c.name, false);
            if (c.name != std::string("photo_unreadable")) {  // the others replace the file
                std::filesystem::remove(c.name[0] == 'p' ? PhotoPath(c.name) : CachedThumb(c.name));
            }
            c.make(c.name);
        }
    }
    // The run goes on a worker; should an open ever wait, opening the FIFOs frees it.
    auto run = std::async(std::launch::async, [&] {
        for (const auto& c : cases) {
            manager.RegisterTask(c.name);
        }
        manager.AddTask("../x");
        manager.BeginProcess();
    });
    if (run.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        for (const char* name : {"thumb_fifo", "photo_fifo"}) {
            close(open((backup + name + ".thumbnail").c_str(), O_RDWR | O_NONBLOCK));
            close(open(PhotoPath(name).c_str(), O_RDWR | O_NONBLOCK));
        }
        FAIL() << "the batch run waited on a file";
    }
    for (const auto& c : cases) {
        EXPECT_TRUE(log.Contains(c.line)) << c.line;
        if (c.make) {
            EXPECT_EQ("none", Verdict(c.name)) << c.name;
        }
    }
    EXPECT_TRUE(log.Contains("[AddTask]:Task name is not a file name. Cannot add task: ../x"));
    EXPECT_EQ(Bytes({1, 2, 3}), iqa_test::ReadFile(outside + "/victim.thumbnail"));
    EXPECT_EQ(Bytes({4, 5, 6}), iqa_test::ReadFile(outside + "/victim.jpg"));

    // A dump target that is no regular file, or that cannot be written, is refused where the dump
    // opens it.
    AddPhoto("dump_readonly", false);
    chmod(PhotoPath("dump_readonly").c_str(), 0444);
    fifo(PhotoPath("dump_fifo"));
    iqa_test::MakeDirs(PhotoPath("dump_folder"));
    for (const char* name : {"dump_readonly", "dump_fifo", "dump_folder"}) {
        manager.IqaReply(name, iqa_test::RandomBytes(16 * 16 * 3, 1).data(), 16, 16);
        EXPECT_TRUE(
            log.Contains("[SaveCustomBuffer]:IqaUpLoad SaveBuffer: can't open " + PhotoPath(name)));
    }
    ExpectUnchangedOrOneRecord("dump_readonly", false);
}

IQA::FileCall gFailing;  // the call the hook fails, with ENOMEM

int FailOneKind(const IQA::FileCallInfo& info, size_t*) {
    return info.call == gFailing ? ENOMEM : 0;
}

// The RAII helpers close exactly what they opened: never a descriptor of the host's (0 stands
// for any) when they never opened one, the one a failed stream leaves, the file a moved-in one
// replaces (itself: none), descriptor 0 when it was theirs.
TEST(Raii, HelpersCloseExactlyWhatTheyOpened) {
    const iqa_test::TempDir dir;
    const std::string file = dir.File("f");
    iqa_test::WriteFile(file, {1, 2, 3});
    const int saved = dup(0);
    const int stand = open(file.c_str(), O_RDONLY);
    ASSERT_EQ(0, dup2(stand, 0));
    close(stand);
    const IQA::JournalHeader header = {3, 1, 0, 1};
    const unsigned char tail[1] = {9};
    const struct {
        const char* what;
        IQA::FileCall failing;
        std::function<bool()> use;  // true when the helper behaved as it must meanwhile
    } cases[] = {
        {"a journal never written", IQA::FileCall::kMakeFolder,
         [&] { return IQA::Journal(dir.path(), "p.jpg"), true; }},
        {"a journal that could not be created", IQA::FileCall::kCreate,
         [&] { return !IQA::Journal(dir.path(), "p.jpg").Write(header, tail); }},
        {"a file that is not there", IQA::FileCall::kMakeFolder,
         [&] { return !IQA::ScopedFile(dir.File("missing").c_str()); }},
        {"a file no stream was made of", IQA::FileCall::kStream,
         [&] { return !IQA::ScopedFile(file.c_str()); }},
        {"a file replaced by another", IQA::FileCall::kMakeFolder,
         [&] {
             IQA::ScopedFile kept(file.c_str());
             kept = IQA::ScopedFile(file.c_str());
             return static_cast<bool>(kept);
         }},
        {"a file moved onto itself", IQA::FileCall::kMakeFolder,
         [&] {
             IQA::ScopedFile kept(file.c_str());
             IQA::ScopedFile& same = kept;
             kept = std::move(same);
             return fgetc(kept.get()) == 1;
         }},
    };
    const size_t descriptors = iqa_test::OpenDescriptors();
    for (const auto& c : cases) {
        gFailing = c.failing;
        IQA::SetFileCallHook(FailOneKind);
        const bool behaved = c.use();
        IQA::SetFileCallHook(nullptr);
        EXPECT_TRUE(behaved) << c.what;
        EXPECT_NE(-1, fcntl(0, F_GETFD)) << c.what << ": closed a descriptor it never opened";
        EXPECT_EQ(descriptors, iqa_test::OpenDescriptors()) << c.what << ": left one open";
    }
    // A host without standard input: a file the helpers open gets descriptor 0, and is closed
    // like any other.
    close(0);
    {
        const IQA::ScopedFd fd(IQA::OpenRegularFile(file.c_str(), O_RDONLY));
        EXPECT_EQ(0, fd.get());
    }
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "left descriptor 0 open";
    dup2(saved, 0);
    close(saved);
}

}  // namespace
