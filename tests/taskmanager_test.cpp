// The request queue, the worker's life cycle, the registry and the file utilities.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <future>
#include <thread>

#include "IqaTaskManager.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManagerPeer.h"
#include "tests/support/TestFiles.h"

using iqa_test::Peer;

namespace {

Request Make(int type, const std::string& name = "", bool stop = false) {
    return Request{static_cast<RequestType>(type), name, stop};
}

std::string Registered(const std::string& name, int count) {
    return "[RegisterTask]:Task registered: " + name + " , task nums: " + std::to_string(count);
}

class TaskManager : public ::testing::Test {
  protected:
    iqa_test::ScopedWorkDir work;
    iqa_test::LogCapture log;
};

TEST_F(TaskManager, LifeCycleAndDropRule) {
    {
        IQA::IqaTaskManager manager;
        EXPECT_EQ(2u, Peer::Chain(manager).size());
        manager.AddRequest(Make(REQUEST_BEGIN_PROCESS));
        manager.AddRequest(Make(REQUEST_STOP, "", true));
        EXPECT_EQ(0u, Peer::Queued(manager));
        EXPECT_FALSE(Peer::Stop(manager));

        manager.SetStopStatus(true);  // the drop rule no longer applies
        manager.AddRequest(Make(REQUEST_STOP, "", false));
        EXPECT_EQ(1u, Peer::Queued(manager));
        EXPECT_FALSE(Peer::Stop(manager));
        EXPECT_FALSE(Peer::WorkerStarted(manager));  // only a registration starts a worker
        manager.ClearQueue();                        // the host may empty the queue itself
        EXPECT_EQ(0u, Peer::Queued(manager));
    }
    EXPECT_EQ((std::vector<std::string>{"[IqaTaskManager]:begin IqaTaskManager",
                                        "[~IqaTaskManager]:end IqaTaskManager"}),
              log.Lines());
}

TEST_F(TaskManager, RegistryCapacityAndDuplicates) {
    IQA::IqaTaskManager manager;
    for (const char* name : {"a", "B", "b", "", "a", "e", "f", "a"}) {
        manager.RegisterTask(name);
    }
    manager.AddTask("b");
    manager.AddTask("g");  // no capacity limit for a put-back name
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ((std::vector<std::string>{"a", "B", "b", "", "e", "g"}), Peer::Tasks(manager));
    EXPECT_EQ((std::vector<std::string>{"[RegisterTask]:begin RegisterTask", Registered("a", 1),
                                        "[RegisterTask]:begin RegisterTask", Registered("B", 2),
                                        "[RegisterTask]:begin RegisterTask", Registered("b", 3),
                                        "[RegisterTask]:begin RegisterTask", Registered("", 4),
                                        "[RegisterTask]:begin RegisterTask",
                                        "[RegisterTask]:Task existed: a ", Registered("a", 4),
                                        "[RegisterTask]:begin RegisterTask", Registered("e", 5),
                                        "[RegisterTask]:begin RegisterTask",
                                        "[RegisterTask]:Task list is full. Cannot register task: f",
                                        "[RegisterTask]:begin RegisterTask",
                                        "[RegisterTask]:Task list is full. Cannot register task: a",
                                        "[AddTask]:Task existed: b "}),
              std::vector<std::string>(lines.begin() + 1, lines.end()));
}

TEST_F(TaskManager, InvalidRequestEndsWorkerAndNextRegistrationRestartsIt) {
    IQA::IqaTaskManager manager;
    Peer::Chain(manager) = {iqa_test::ScoreNode(0.95)};
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "a"));
    ASSERT_TRUE(log.WaitFor(Registered("a", 1)));  // until then the drop rule applies
    manager.AddRequest(Make(3));
    ASSERT_TRUE(log.WaitFor("[ProcessRequests]:Invalid request or stop"));
    ASSERT_TRUE(Peer::WorkerEnds(manager));
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().back().priority);

    manager.AddRequest(Make(REQUEST_BEGIN_PROCESS));  // waits for a worker
    manager.AddRequest(Make(-1));                     // any other value is invalid too
    EXPECT_EQ(2u, Peer::Queued(manager));
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "c"));
    ASSERT_TRUE(log.WaitFor("[ProcessRequests]:Invalid request or stop", 2));
    ASSERT_TRUE(Peer::WorkerEnds(manager));
    const std::vector<std::string> lines = log.Lines();
    const auto high = std::find(lines.begin(), lines.end(),
                                "[IqaProc]:img storage/emulated/0/DCIM/Camera/a.jpg with high "
                                "similarity : ssim 0.950000");
    const auto invalid = std::find(high, lines.end(), "[ProcessRequests]:Invalid request or stop");
    EXPECT_NE(lines.end(), invalid) << "begin request first, then the invalid one";
    EXPECT_EQ(1u, Peer::Queued(manager));  // the new registration waits behind it
}

TEST_F(TaskManager, StopRequestDiscardsWhatIsQueuedBehindIt) {
    iqa_test::Gate gate;
    IQA::IqaTaskManager manager;
    Peer::Chain(manager) = {gate.Node(), iqa_test::ScoreNode(0.5)};
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "p"));
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "q"));
    ASSERT_TRUE(log.WaitFor(Registered("q", 2)));
    manager.AddRequest(Make(REQUEST_BEGIN_PROCESS));
    ASSERT_TRUE(gate.Entered());  // the run holds q; p is still listed, so a stop is not dropped
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "x"));
    manager.AddRequest(Make(REQUEST_STOP, "", true));
    EXPECT_TRUE(Peer::Stop(manager));  // at once, on the host's thread
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "z"));
    manager.AddRequest(Make(REQUEST_BEGIN_PROCESS));
    gate.Open();
    ASSERT_TRUE(log.WaitFor(Registered("x", 3)));
    ASSERT_TRUE(iqa_test::Eventually([&] { return Peer::Queued(manager) == 0; },
                                     "the stop request emptying the queue"));
    manager.AddRequest(Make(REQUEST_REGISTER_TASK, "last"));
    ASSERT_TRUE(log.WaitFor(Registered("last", 4)));
    EXPECT_FALSE(log.Contains(Registered("z", 4)));
    // Stopped inside the chain: q is put back, and taken again only to be put back at the
    // first checkpoint of the next iteration.
    EXPECT_TRUE(log.Contains("[GetSsim]:interrupt current task's procss: q"));
    EXPECT_TRUE(log.Contains("[IqaProc]:interrupt current task: q"));
    EXPECT_EQ((std::vector<std::string>{"p", "q", "x", "last"}), Peer::Tasks(manager));
}

TEST_F(TaskManager, DestructionWaitsForTheBatchRun) {
    iqa_test::Gate gate;
    std::atomic<bool> destroyed{false};
    auto manager = std::make_unique<IQA::IqaTaskManager>();
    Peer::Chain(*manager) = {gate.Node(), iqa_test::ScoreNode(0.99)};
    manager->AddRequest(Make(REQUEST_REGISTER_TASK, "p"));
    ASSERT_TRUE(log.WaitFor(Registered("p", 1)));
    manager->AddRequest(Make(REQUEST_BEGIN_PROCESS));
    manager->AddRequest(Make(REQUEST_REGISTER_TASK, "queued"));
    ASSERT_TRUE(gate.Entered());
    std::promise<void> done;
    std::future<void> finished = done.get_future();
    std::thread host([&] {
        manager.reset();
        destroyed = true;
        done.set_value();
    });
    ASSERT_TRUE(log.WaitFor("[~IqaTaskManager]:end IqaTaskManager"));
    EXPECT_FALSE(destroyed.load());  // the worker is still held inside the chain
    gate.Open();
    // Should the destructor never return, the joinable thread ends the test with an abort.
    ASSERT_EQ(std::future_status::ready, finished.wait_for(iqa_test::kDeadline))
        << "the manager's destructor did not return once the batch run could finish";
    host.join();
    EXPECT_TRUE(log.Contains(
        "[IqaProc]:img storage/emulated/0/DCIM/Camera/p.jpg with high similarity : ssim 0.990000"));
    EXPECT_FALSE(log.Contains(Registered("queued", 1)));  // discarded at exit
}

TEST_F(TaskManager, ThumbnailBackupAndFileUtilities) {
    IQA::IqaTaskManager manager;
    iqa_test::MakeDirs("cache");
    iqa_test::WriteFile("cache/a.thumbnail", {1});
    iqa_test::WriteFile("cache/b.thumbnail", {2});
    const mode_t mask = umask(022);
    manager.CopyThumbs("cache/a.thumbnail", "backup", "a");
    umask(mask);
    struct stat st = {};
    ASSERT_EQ(0, stat("backup", &st));
    EXPECT_EQ(0755u, st.st_mode & 0777u);  // 0775 less the creation mask
    EXPECT_EQ(iqa_test::Bytes{1}, iqa_test::ReadFile("backup/a.thumbnail"));
    EXPECT_FALSE(IsFileExists("cache/a.thumbnail"));

    iqa_test::WriteFile("cache/a.thumbnail", {3});
    manager.CopyThumbs("cache/a.thumbnail", "backup", "a");  // replaces the older backup
    EXPECT_EQ(iqa_test::Bytes{3}, iqa_test::ReadFile("backup/a.thumbnail"));
    manager.CopyThumbs("cache/a.thumbnail", "backup", "a");  // gone from the cache
    EXPECT_EQ(iqa_test::Bytes{3}, iqa_test::ReadFile("backup/a.thumbnail"));
    iqa_test::WriteFile("file", {});
    manager.CopyThumbs("cache/b.thumbnail", "file", "b");  // a file where the folder should be
    manager.CopyThumbs("cache/b.thumbnail", "no/such", "b");
    EXPECT_TRUE(IsFileExists("cache/b.thumbnail"));
    EXPECT_TRUE(IsFileExists("backup"));
    EXPECT_FALSE(IsFileExists("nothing"));
    RemoveFile("backup/a.thumbnail", "label");
    RemoveFile("backup/a.thumbnail", "again");

    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(
        (std::vector<std::string>{"[CopyThumbs]:begin back up", "[CopyThumbs]:back up successfully",
                                  "[CopyThumbs]:begin back up", "[CopyThumbs]:back up successfully",
                                  "[CopyThumbs]:begin back up", "[CopyThumbs]:Failed to back up.",
                                  "[CopyThumbs]:begin back up", "[CopyThumbs]:Failed to back up.",
                                  "[CopyThumbs]:begin back up",
                                  "[CopyThumbs]:Failed to create destination directory.",
                                  "[RemoveFile]: backup/a.thumbnail ok(label)",
                                  "[RemoveFile]: backup/a.thumbnail failed(again)"}),
        std::vector<std::string>(lines.begin() + 1, lines.end()));
    EXPECT_EQ(ANDROID_LOG_INFO, log.Entries().back().priority);
    EXPECT_EQ("IqaDebug-Utils", log.Entries().back().tag);
}

}  // namespace
