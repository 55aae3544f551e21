// The iqa host program end to end on small generated camera folders.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

#include "CameraFiles.h"
#include "DumpJournal.h"
#include "FileCalls.h"
#include "IqaProcessData.h"
#include "IqaUpLoad.h"
#include "SceneGenerator.h"
#include "TestFiles.h"
#include "reference/ReferenceDump.h"

using iqa_test::Bytes;

namespace {

const std::string kCamera = "/storage/emulated/0/DCIM/Camera";

struct Result {
    int status;
    std::string out;
    bool operator==(const Result& other) const {
        return status == other.status && out == other.out;
    }
};

// Runs iqa with stdout (and stderr when asked) captured; a run that hangs is ended after a minute.
Result Iqa(const std::string& arguments, bool withErrors = false) {
    const std::string command = "timeout -k 5 60 " + std::string(IQA_CLI) + " " + arguments +
                                (withErrors ? " 2>&1" : " 2>/dev/null");
    FILE* pipe = popen(command.c_str(), "r");
    Result result{-1, ""};
    char chunk[4096];
    size_t n = 0;
    while ((n = fread(chunk, 1, sizeof(chunk), pipe)) > 0) {
        result.out.append(chunk, n);
    }
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string RowOf(const std::string& table, const std::string& name) {
    const size_t at = table.find(name);
    return at == std::string::npos ? "" : table.substr(at, table.find('\n', at) - at);
}

class Tools : public ::testing::Test {
  protected:
    Tools() { iqa_test::MakeDirs(dir.path() + kCamera + "/cache"); }

    Bytes Photo(const std::string& name, const Bytes& pixels, bool trailer) {
        Bytes file = iqa_tools::EncodeJpeg(pixels, 320, 240, 3, 92);
        if (trailer) {
            const Bytes t = iqa_tools::Trailer({{"CAMINFO", Bytes(30, 1)}}, Bytes(16, 2));
            file.insert(file.end(), t.begin(), t.end());
        }
        iqa_test::WriteFile(PhotoPath(name), file);
        return file;
    }
    void Thumb(const std::string& name, const Bytes& pixels) {
        iqa_test::WriteFile(
            dir.path() + kCamera + "/cache/" + name + ".thumbnail",
            iqa_tools::ThumbnailFile(80, 60, iqa_tools::BoxReduceRgb(pixels, 320, 80, 60)));
    }
    std::string PhotoPath(const std::string& name) {
        return dir.path() + kCamera + "/" + name + ".jpg";
    }

    iqa_test::TempDir dir;
    const Bytes scene = iqa_tools::RenderScene(320, 240, 1);
    const Bytes other = iqa_tools::RenderScene(320, 240, 2);
};

TEST_F(Tools, RunGivesVerdictsAndRecords) {
    const std::vector<std::string> names = {"a_match", "b_other", "c_nothumb", "d_plain",
                                            "e_match", "f_match", "g_other"};
    std::map<std::string, Bytes> before;
    for (const std::string& name : names) {
        const bool matching = name.find("match") != std::string::npos;
        before[name] = Photo(name, scene, name != "d_plain");
        if (name != "c_nothumb") {
            Thumb(name, matching ? scene : other);
        }
    }
    const Result run = Iqa("run " + dir.path());
    ASSERT_EQ(0, run.status) << run.out;
    for (const char* name : {"a_match", "e_match", "f_match"}) {
        EXPECT_NE(std::string::npos, RowOf(run.out, name).find("80x60")) << RowOf(run.out, name);
        EXPECT_NE(std::string::npos, RowOf(run.out, name).find(" high ")) << RowOf(run.out, name);
        EXPECT_EQ(before[name], iqa_test::ReadFile(PhotoPath(name)));
    }
    for (const char* name : {"b_other", "g_other"}) {
        EXPECT_NE(std::string::npos, RowOf(run.out, name).find(" low ")) << RowOf(run.out, name);
        EXPECT_NE(std::string::npos, RowOf(run.out, name).find("inserted (+592 bytes)"));
        // 20 x 15 luma bytes and 8 chroma rows of 20 bytes (odd height: chroma rounded up).
        EXPECT_EQ(before[name].size() + 20 * 15 + 20 * 8 + 132,
                  iqa_test::ReadFile(PhotoPath(name)).size());
    }
    EXPECT_NE(std::string::npos, RowOf(run.out, "c_nothumb").find("no result: no thumbnail"));
    EXPECT_NE(std::string::npos,
              RowOf(run.out, "d_plain").find("not inserted: photo has no trailer"));
    EXPECT_EQ(before["d_plain"], iqa_test::ReadFile(PhotoPath("d_plain")));

    const Result missing = Iqa("run " + dir.path() + "/storage");
    EXPECT_EQ(1, missing.status);
}

TEST_F(Tools, InspectListsTheLibrarysRecordAndRejectsOthersUntouched) {
    const Bytes original = Photo("p", scene, true);
    const Bytes nv12(24, 77);
    IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(PhotoPath("p"), nv12.data(), &d);
    const Result listed = Iqa("inspect " + PhotoPath("p"));
    EXPECT_EQ(0, listed.status);
    const size_t image = original.size() - 30 - 12 - 16 - 24;
    EXPECT_NE(std::string::npos, listed.out.find("other data: 16 bytes"));
    EXPECT_NE(std::string::npos, listed.out.find("record at " + std::to_string(image + 156) +
                                                 ": 30 bytes, tag \"CAMINFO\""));
    EXPECT_NE(std::string::npos, listed.out.find("record at " + std::to_string(image) +
                                                 ": 144 bytes, tag \"Iqa_com\""));
    EXPECT_NE(
        std::string::npos,
        listed.out.find("image 4x4, stride 4, size 24, format 1, algorithm \"Iqa_comparessim\""));

    const Bytes plain = Photo("plain", scene, false);
    Bytes damaged = original;
    damaged[damaged.size() - 24 - 16 - 12 + 3] = 0x40;  // payload length past the start
    iqa_test::WriteFile(PhotoPath("damaged"), damaged);
    for (const auto& [name, bytes] :
         {std::pair<std::string, Bytes>{"plain", plain}, {"damaged", damaged}}) {
        const Result rejected = Iqa("inspect " + PhotoPath(name));
        EXPECT_EQ(1, rejected.status) << rejected.out;
        EXPECT_EQ(bytes, iqa_test::ReadFile(PhotoPath(name)));
    }
}

TEST_F(Tools, ExtractRoundTripsAnNv12Preview) {
    // A smooth image: NV12 keeps it within the colour conversion's rounding.
    const int w = 40, h = 30;
    Bytes rgb(w * h * 3);
    for (int i = 0; i < w * h; ++i) {
        rgb[3 * i] = static_cast<unsigned char>(40 + (i % w) * 4);
        rgb[3 * i + 1] = static_cast<unsigned char>(60 + (i / w) * 5);
        rgb[3 * i + 2] = 128;
    }
    Bytes nv12(w * h * 3 / 2);
    IQA::IqaProcessData().ConvertRGBToNV12(rgb.data(), w, h, nv12.data());
    Photo("p", scene, true);
    IQA::ImageDumpExpand d = {w, h, w, w * h * 3 / 2, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(PhotoPath("p"), nv12.data(), &d);
    const std::string out = dir.path() + "/preview.ppm";
    ASSERT_EQ(0, Iqa("extract " + PhotoPath("p") + " " + out).status);
    const Bytes ppm = iqa_test::ReadFile(out);
    const std::string header = "P6\n40 30\n255\n";
    ASSERT_EQ(header.size() + rgb.size(), ppm.size());
    EXPECT_EQ(header, std::string(ppm.begin(), ppm.begin() + static_cast<long>(header.size())));
    int worst = 0;
    for (size_t i = 0; i < rgb.size(); ++i) {
        worst = std::max(worst, std::abs(ppm[header.size() + i] - rgb[i]));
    }
    EXPECT_LE(worst, 8);  // truncating conversion plus 2x2 chroma of a smooth ramp
    EXPECT_EQ(0, Iqa("extract " + PhotoPath("p") + " " + dir.path() + "/preview.jpg").status);
    EXPECT_EQ(1, Iqa("extract " + PhotoPath("none") + " " + out).status);
}

TEST_F(Tools, AnomalyReportsAGreenFrame) {
    iqa_test::WriteFile(dir.File("green.yuv"), Bytes(64 * 48 * 3 / 2, 0));
    const Result green = Iqa("anomaly " + dir.File("green.yuv") + " 64 48 64 frame.jpg");
    EXPECT_EQ(0, green.status);
    EXPECT_NE(std::string::npos, green.out.find("with abnormal green screen!"));
    EXPECT_NE(std::string::npos, green.out.find("name \"frame.jpg\", type 0 (green screen)"));
    EXPECT_EQ(1, Iqa("anomaly " + dir.File("green.yuv") + " 640 480 640 big").status);
}

TEST_F(Tools, RecoverCompletesAnInterruptedDump) {
    // The state a crash leaves right after a dump's journal became durable.
    const Bytes original = Photo("p", scene, true);
    const IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    const size_t at = iqa_ref::LastRecordIfWhole(original, iqa_ref::JpegEnd(original));
    const Bytes expected = iqa_ref::WithRecord(original, at, Bytes(24, 5), d);
    const Bytes tail(expected.begin() + static_cast<long>(at), expected.end());
    {
        const IQA::ScopedFd photo(IQA::OpenRegularFile(PhotoPath("p").c_str(), O_RDONLY));
        IQA::JournalHeader header = {0, 0, original.size(), at, 0, tail.size()};
        ASSERT_TRUE(IQA::IdentifyPhoto(photo.get(), &header));
        IQA::Journal journal(dir.path() + kCamera, "p.jpg");
        ASSERT_TRUE(journal.Write(header, tail.data()));
    }
    const Result recovered = Iqa("recover " + dir.path(), true);
    EXPECT_EQ(0, recovered.status);
    EXPECT_EQ("recover: completed the record in storage/emulated/0/DCIM/Camera/p.jpg\n",
              recovered.out);
    EXPECT_EQ(expected, iqa_test::ReadFile(PhotoPath("p")));
    EXPECT_EQ((Result{0, ""}), Iqa("recover " + dir.path(), true));  // nothing is left to do
}

TEST_F(Tools, NeverWaitOnOrAbortAtWhatIsNotARegularFile) {
    const std::string photo = PhotoPath("p"), fifo = dir.File("fifo"), folder = dir.File("d");
    Photo("p", scene, true);
    IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(photo, Bytes(24, 1).data(), &d);
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0644));
    iqa_test::MakeDirs(folder);
    for (const std::string& arguments :
         {"inspect " + folder, "inspect " + fifo, "inspect " + dir.File("gone"),
          "extract " + folder + " " + dir.File("out.jpg"), "extract " + photo + " " + fifo,
          "extract " + photo + " " + folder, "anomaly " + fifo + " 4 4 4 frame",
          "recover " + folder}) {
        const Result r = Iqa(arguments, true);
        EXPECT_EQ(1, r.status) << arguments;
        EXPECT_EQ(0u, r.out.rfind("iqa ", 0)) << arguments << ": " << r.out;
        EXPECT_EQ(r.out.size() - 1, r.out.find('\n')) << "one line: " << r.out;
    }
}

}  // namespace
