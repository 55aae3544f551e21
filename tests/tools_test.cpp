// The iqa host program end to end on small generated camera folders.
#include <gtest/gtest.h>
#include <png.h>

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "IqaUpLoad.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/reference/ReferenceKernels.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"

using iqa_test::Bytes;
using nlohmann::json;

namespace {

struct Result {
    int status;
    std::string out;
    bool operator==(const Result& other) const {
        return status == other.status && out == other.out;
    }
};

// Runs a shell command with stdout (and stderr when asked) captured.
Result Shell(const std::string& command, bool withErrors) {
    FILE* pipe = popen((command + (withErrors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
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

// iqa, in the folder given (else here); one that hangs is ended after `seconds`.
std::string IqaCommand(int seconds = 60) {
    return "timeout -k 5 " + std::to_string(seconds) + " " + std::string(IQA_CLI) + " ";
}
// `iqa sample` encodes 12-megapixel photos: minutes under emulation on another architecture.
Result Iqa(const std::string& arguments, bool withErrors = false, const std::string& in = "",
           int seconds = 60) {
    return Shell((in.empty() ? "" : "cd " + in + " && ") + IqaCommand(seconds) + arguments,
                 withErrors);
}

std::map<std::string, json> PhotosOf(const json& run) {
    std::map<std::string, json> photos;
    for (const json& photo : run.at("photos")) {
        photos[photo.at("name").get<std::string>()] = photo;
    }
    return photos;
}

// width x height x 3 bytes, or nothing when the file is not a PNG.
Bytes ReadPng(const std::string& path, int* width, int* height) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        return {};
    }
    image.format = PNG_FORMAT_RGB;
    Bytes rgb(PNG_IMAGE_SIZE(image));
    if (!png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr)) {
        return {};
    }
    *width = static_cast<int>(image.width), *height = static_cast<int>(image.height);
    return rgb;
}

class Tools : public ::testing::Test {
  protected:
    std::string Root() const { return dir.File("root/"); }
    std::string PhotoPath(const std::string& name, const std::string& root = "") const {
        return (root.empty() ? Root() : root + "/") + iqa_test::PhotoPath(name);
    }
    std::string ThumbPath(const std::string& name) const {
        return Root() + iqa_test::CachedThumb(name);
    }
    // A 320 x 240 camera photo of the scene, and its 80 x 60 thumbnail of thumbScene.
    Bytes Photo(const std::string& name, const Bytes& thumbScene) {
        return iqa_test::AddCameraPhoto(Root(), name, scene, 320, 240, thumbScene, 80, 60);
    }
    Bytes PlainPhoto(const std::string& name) {  // no trailer
        const Bytes file = iqa_tools::EncodeJpeg(scene, 320, 240, 3, 90);
        iqa_test::WriteFile(PhotoPath(name), file);
        return file;
    }
    // Photos of every outcome: matching and other thumbnails, a missing thumbnail, a photo
    // without a trailer.
    std::map<std::string, Bytes> MixedRoot() {
        std::map<std::string, Bytes> before;
        for (const std::string name :
             {"a_match", "b_other", "c_nothumb", "d_plain", "e_match", "f_match", "g_other"}) {
            before[name] = Photo(name, name.find("match") != std::string::npos ? scene : other);
        }
        std::filesystem::remove(ThumbPath("c_nothumb"));
        before["d_plain"] = PlainPhoto("d_plain");
        return before;
    }

    // The page's DOM after loading in headless Chromium, in a laptop's 1400-pixel-wide window,
    // with `script` (the test's measurements) appended to it.
    Result BrowserDom(const std::string& page, const std::string& script) {
        EXPECT_EQ(0, access("/usr/bin/chromium", X_OK)) << "chromium missing: run scripts/setup.sh";
        Bytes measured = iqa_test::ReadFile(page);
        measured.insert(measured.end(), script.begin(), script.end());
        iqa_test::WriteFile(dir.File("measured.html"), measured);
        return Shell(
            "/usr/bin/chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
            "--disable-background-networking --disable-component-update --disable-sync "
            "--window-size=1400,900 --user-data-dir=" +
                dir.File("browser") + " --dump-dom file://" + dir.File("measured.html"),
            false);
    }

    iqa_test::TempDir dir;
    const Bytes scene = iqa_tools::RenderScene(320, 240, 1);
    const Bytes other = iqa_tools::RenderScene(320, 240, 2);
};

TEST_F(Tools, RunReportsEachOutcomeAsATableJsonAndCsv) {
    std::map<std::string, Bytes> before = MixedRoot();
    std::filesystem::copy(Root(), dir.File("json"), std::filesystem::copy_options::recursive);
    std::filesystem::copy(Root(), dir.File("csv"), std::filesystem::copy_options::recursive);
    // Standard error joins the document: with no terminal there is no progress to mix into it.
    const Result run = Iqa("run --json " + dir.File("json"), true);
    ASSERT_EQ(0, run.status) << run.out;
    std::map<std::string, json> photos = PhotosOf(json::parse(run.out));
    ASSERT_EQ(7u, photos.size()) << run.out;
    // Low verdicts get a record of 20 x 15 luma bytes and 8 chroma rows of 20 (odd height:
    // chroma rounded up), 592 bytes with its headers; the others leave the photo as it was.
    json outcomes;
    for (const auto& [name, photo] : photos) {
        const json& ssim = photo["ssim"];
        outcomes[name] = {photo["verdict"],       ssim.is_null() ? "-" : ssim > 0.99 ? "1" : "<1",
                          photo["compared"],      photo["record"],
                          photo["record_bytes"],  photo["problem"],
                          photo["record_problem"]};
        const Bytes after = iqa_test::ReadFile(PhotoPath(name, dir.File("json")));
        const size_t added = photo["record_bytes"];
        EXPECT_EQ(before[name].size() + added, after.size()) << name;
        EXPECT_TRUE(added > 0 || after == before[name]) << name;
    }
    const std::string high = R"(["high", "1", {"width": 80, "height": 60}, "none", 0, null, null])";
    const std::string low = R"(["low", "<1", {"width": 80, "height": 60}, "inserted", 592, null,
                                null])";
    EXPECT_EQ(json::parse(R"({"a_match": )" + high + R"(, "b_other": )" + low + R"(,
        "c_nothumb": ["no result", "-", null, "none", 0, "no thumbnail in the cache folder", null],
        "d_plain": ["low", "<1", {"width": 80, "height": 60}, "not inserted", 0, null,
                    "photo has no trailer"], "e_match": )" +
                          high + R"(, "f_match": )" + high + R"(, "g_other": )" + low + "}"),
              outcomes);

    // The same outcomes as CSV and as a table whose columns fit their content.
    const Result csv = Iqa("run --csv " + dir.File("csv"));
    char ssim[32];
    snprintf(ssim, sizeof(ssim), "%.6f", photos["b_other"]["ssim"].get<double>());
    EXPECT_NE(std::string::npos, csv.out.find(std::string("\nb_other,80x60,320x240,80x60,") + ssim +
                                              ",low,,inserted,592,\n"))
        << csv.out;
    EXPECT_NE(std::string::npos, csv.out.find("\nc_nothumb,,,,,no result,no thumbnail in the "
                                              "cache folder,none,0,\n"));
    const Result table =
        Shell("script -qec '" + IqaCommand() + " run " + Root() + "' /dev/null", true);
    EXPECT_NE(std::string::npos, table.out.find("] 6/6 ")) << "progress bar on a terminal";
    EXPECT_NE(std::string::npos,
              table.out.find("\033[Kphoto      compared  ssim      verdict    record            "
                             "     why\r\n"))
        << "the bar cleared, then the table: " << table.out;
    EXPECT_NE(std::string::npos, table.out.find(std::string("b_other    80x60     ") + ssim +
                                                "  low        inserted (+592 bytes)\r\n"));
    EXPECT_NE(std::string::npos, table.out.find("c_nothumb  -         -         no result  -    "
                                                "                  no thumbnail in the cache "
                                                "folder\r\n"));
    EXPECT_EQ(1, Iqa("run " + Root() + "/storage").status);
}

TEST_F(Tools, CompareScoresAPairAsTheBatchRunLogsIt) {
    const Bytes photo = Photo("p", other);
    const std::string pair =
        "storage/emulated/0/DCIM/Camera/p.jpg storage/emulated/0/DCIM/Camera/cache/p.thumbnail";
    const Result compared = Iqa("compare --worst 3 " + pair, false, Root());
    const Result document =
        Iqa("compare --json " + pair + " --heatmap " + dir.File("map.png"), false, Root());
    ASSERT_EQ(0, document.status);
    const json j = json::parse(document.out);
    const std::vector<double> blocks = j["blocks"]["ssim"];
    ASSERT_EQ(10u * 7u, blocks.size());  // the whole 8x8 blocks of 80 x 60
    double sum = 0.0;
    for (double b : blocks) {
        sum += b;
    }
    EXPECT_EQ(sum / static_cast<double>(blocks.size()), j["ssim"].get<double>());  // bit for bit

    // The worst block first, with the pixels its bytes come from (the plane is the first 80 x 60
    // bytes of the RGB buffer: row y of the plane holds bytes 80y ... 80y + 79).
    const size_t worst =
        static_cast<size_t>(std::min_element(blocks.begin(), blocks.end()) - blocks.begin());
    std::istringstream lines(compared.out);
    std::string size, verdict, first;
    std::getline(std::getline(std::getline(lines, size), verdict), first);
    EXPECT_EQ("photo 320x240, thumbnail 80x60, compared at 80x60", size);
    char value[32];
    snprintf(value, sizeof(value), "%lf", blocks[worst]);
    EXPECT_EQ(0u, first.find("block " + std::to_string(worst % 10) + "," +
                             std::to_string(worst / 10) + "  ssim " + value + "  pixels "))
        << first;
    // Row r of block 0,0 is bytes 80r ... 80r + 7, pixels 80r / 3 ... (80r + 7) / 3 of the
    // picture: 0-2, 26-29, 53-55 of row 0, the same of row 1, then 0-2 and 26-29 of row 2.
    EXPECT_NE(std::string::npos, Iqa("compare --worst 70 " + PhotoPath("p") + " " + ThumbPath("p"))
                                     .out.find("0-2,0-2 26-29,0-2 53-55,0-1\n"));
    int width = 0, height = 0;
    EXPECT_FALSE(ReadPng(dir.File("map.png"), &width, &height).empty());
    EXPECT_EQ(640, width) << "enlarged 8 times";
    EXPECT_GT(height, 480);  // the legend below
    EXPECT_EQ(photo, iqa_test::ReadFile(PhotoPath("p")));

    // The batch run logs the same line.
    const Result run = Iqa("run --log " + Root(), true);
    EXPECT_NE(std::string::npos, run.out.find("]:" + verdict + "\n")) << verdict << run.out;
}

TEST_F(Tools, ImportedPhotosScoreExactlyOneUntilTheirThumbnailIsMadeToDisagree) {
    const std::string in = dir.File("in");
    iqa_test::MakeDirs(in);
    const Bytes wide = iqa_tools::RenderScene(1300, 980, 3);
    iqa_test::WriteFile(in + "/wide.jpg", iqa_tools::EncodeJpeg(wide, 1300, 980, 3, 90));
    const Bytes grey(320 * 240, 90);
    iqa_test::WriteFile(in + "/grey.jpg", iqa_tools::EncodeJpeg(grey, 320, 240, 1, 90));
    // 80 / 9 = 8 but 80 / 8 = 10: a factor of 9 would not be found again by the library.
    iqa_test::WriteFile(in + "/tall.jpg",
                        iqa_tools::EncodeJpeg(Bytes(80 * 8640 * 3, 50), 80, 8640, 3, 90));
    // A photo with a gain map its index names and a depth map appended: both stay image data,
    // what follows them goes into the placeholder record.
    const Bytes map = iqa_tools::EncodeJpeg(Bytes(16 * 8, 90), 16, 8, 1, 80);
    Bytes tail =
        iqa_tools::MultiPictureJpeg(iqa_tools::EncodeJpeg(scene, 320, 240, 3, 90), {{0, map}});
    tail.insert(tail.end(), map.begin(), map.end());
    const size_t imageEnd = tail.size();
    tail.insert(tail.end(), {'x', 'y', 'z'});
    iqa_test::WriteFile(in + "/tail.jpg", tail);
    const std::string photos =
        in + "/wide.jpg " + in + "/grey.jpg " + in + "/tall.jpg " + in + "/tail.jpg";

    const Result imported = Iqa("import " + Root() + " " + photos);
    EXPECT_EQ((Result{0,
                      "wide: 1300x980 photo, 650x490 thumbnail (factor 2)\n"
                      "grey: 320x240 photo, 320x240 thumbnail (factor 1)\n"
                      "tall: 80x8640 photo, 8x864 thumbnail (factor 10)\n"
                      "tail: 320x240 photo, 320x240 thumbnail (factor 1)\n"}),
              imported);
    // Every byte of the trailer: the payload, its header, no other data, the file header.
    Bytes expected(tail.begin(), tail.begin() + static_cast<long>(imageEnd));
    const char trailer[] = "xyz\3\0\0\0IMPORT\0\0\0\0\0\0CAMERA-TRAILER v1.00";
    expected.insert(expected.end(), trailer, trailer + sizeof(trailer) - 1);
    EXPECT_EQ(expected, iqa_test::ReadFile(PhotoPath("tail")));

    // Nothing is replaced without --force.
    const Bytes grey1 = iqa_test::ReadFile(PhotoPath("grey"));
    const Result again = Iqa("import " + Root() + " --tint " + in + "/grey.jpg", true);
    EXPECT_EQ(1, again.status);
    EXPECT_NE(std::string::npos, again.out.find("File exists (--force replaces it)")) << again.out;
    EXPECT_EQ(grey1, iqa_test::ReadFile(PhotoPath("grey")));

    std::filesystem::copy(Root(), dir.File("forced"), std::filesystem::copy_options::recursive);
    const std::string forced = "import " + dir.File("forced") + " --force ";
    EXPECT_EQ(0, Iqa(forced + "--shift 20 " + in + "/wide.jpg").status);
    // Another frame of another shape: reduced to cover the thumbnail, its centre cut out.
    EXPECT_EQ((Result{0, "grey: 320x240 photo, 320x240 thumbnail (factor 1), made from " + in +
                             "/wide.jpg (reduced by 4, its centre cut out)\n"}),
              Iqa(forced + "--other " + in + "/wide.jpg " + in + "/grey.jpg"));
    // Untouched photos score exactly 1 and hold a whole trailer; those made to disagree get a
    // record.
    for (const std::string& root : {Root(), dir.File("forced")}) {
        for (const auto& [name, photo] : PhotosOf(json::parse(Iqa("run --json " + root).out))) {
            const bool changed = root != Root() && (name == "wide" || name == "grey");
            EXPECT_EQ(changed ? "low" : "high", photo["verdict"]) << name;
            EXPECT_EQ(changed ? "inserted" : "none", photo["record"]) << name;
            EXPECT_TRUE(changed || photo["ssim"] == 1.0) << name;
            EXPECT_EQ(0, Iqa("inspect " + root + "/" + iqa_test::PhotoPath(name)).status) << name;
        }
    }
}

TEST_F(Tools, ReportShowsEveryPhotoAndImageInABrowser) {
    MixedRoot();
    // A thumbnail cut short: its problem names a long path, which must wrap in its column.
    Photo("h_cut", other);
    std::filesystem::resize_file(ThumbPath("h_cut"), 1000);
    ASSERT_EQ(0, Iqa("run " + Root()).status);
    const Result report = Iqa("report " + Root() + " -o " + dir.File("report.html"));
    ASSERT_EQ((Result{0, dir.File("report.html") + "\n"}), report);
    const Result dom = BrowserDom(
        dir.File("report.html"),
        "<script>addEventListener('load', () => {document.body.dataset.fit = "
        "document.documentElement.scrollWidth <= innerWidth; document.body.dataset.wrapped = "
        "[...document.querySelectorAll('.note')].every(n => n.scrollWidth <= n.clientWidth && "
        "n.getBoundingClientRect().right <= n.closest('td').getBoundingClientRect().right)})"
        "</script>");
    ASSERT_EQ(0, dom.status);
    EXPECT_NE(std::string::npos, dom.out.find("data-fit=\"true\"")) << "the page is wider";
    EXPECT_NE(std::string::npos, dom.out.find("data-wrapped=\"true\"")) << "a note runs over";
    EXPECT_NE(std::string::npos, dom.out.find("Failed to read file : storage/")) << "no long note";
    // Low verdicts first, then high, then photos without a result; images per row: the
    // thumbnail, the reduced photo and the block map where a pair was compared, and the preview
    // where a record was inserted.
    std::string rows;
    const std::string row = "<tr id=\"photo-", image = "src=\"data:image/jpeg;base64,";
    for (size_t at = dom.out.find(row); at != std::string::npos; at = dom.out.find(row, at + 1)) {
        const size_t name = at + row.size(), end = dom.out.find("</tr>", at);
        int images = 0;
        for (size_t i = dom.out.find(image, name); i < end; i = dom.out.find(image, i + 1)) {
            ++images;
        }
        rows += dom.out.substr(name, dom.out.find('"', name) - name) + ":" +
                std::to_string(images) + " ";
    }
    EXPECT_EQ("b_other:4 d_plain:3 g_other:4 a_match:3 e_match:3 f_match:3 c_nothumb:0 h_cut:0 ",
              rows);
    EXPECT_EQ(std::string::npos, dom.out.find("class=\"broken\""))
        << "an image the browser cannot show";
}

TEST_F(Tools, InspectListsTheLibrarysRecordAndRejectsOthersUntouched) {
    const Bytes original = Photo("p", scene);
    IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(PhotoPath("p"), Bytes(24, 77).data(), &d);
    // Offsets: the image data, then our record (24 + 120 + 12), the camera's (40 + 12), the other
    // data and the file header.
    const size_t end = original.size() - 40 - 12 - 9 - 24;
    const auto at = [&](size_t offset) { return std::to_string(end + offset); };
    EXPECT_EQ((Result{0, PhotoPath("p") + ": " + at(156 + 85) + " bytes\nimage at 0: " + at(0) +
                             " bytes, primary\nfile header at " + at(156 + 61) +
                             ", other data: 9 bytes\nrecord at " + at(156) +
                             ": 40 bytes, tag \"CAMINFO\"\nrecord at " + at(0) +
                             ": 144 bytes, tag \"Iqa_com\"\n  image 4x4, stride 4, size 24, "
                             "format 1, algorithm \"Iqa_comparessim\"\nimage data: " +
                             at(0) + " bytes\n"}),
              Iqa("inspect " + PhotoPath("p")));
    const json j = json::parse(Iqa("inspect --json " + PhotoPath("p")).out);
    EXPECT_EQ(json::parse("{\"offset\": " + at(0) +
                          R"(, "length": 144, "tag": "Iqa_com", "image": {"width": 4, "height": 4,
                          "stride": 4, "size": 24, "format": 1, "algorithm": "Iqa_comparessim"}})"),
              j["records"][1]);
    EXPECT_EQ(end, j["image_end"]);

    // A photo's further images, listed before its records as its index names them.
    const Bytes gain = iqa_tools::EncodeJpeg(Bytes(16 * 8, 90), 16, 8, 1, 80);
    const Bytes primary = iqa_tools::EncodeJpeg(scene, 320, 240, 3, 90);
    const Bytes hdr = iqa_tools::MultiPictureJpeg(primary, {{0x020002, gain}, {0, gain}}, {true});
    Bytes layered = hdr;
    const Bytes camera = iqa_tools::Trailer({{"CAMINFO", Bytes(5, 1)}}, {});
    for (const Bytes& part : {gain, camera}) {
        layered.insert(layered.end(), part.begin(), part.end());
    }
    iqa_test::WriteFile(PhotoPath("hdr"), layered);
    const size_t p0 = hdr.size() - 2 * gain.size(), g = gain.size();
    EXPECT_EQ(json::parse("[{\"offset\": 0, \"length\": " + std::to_string(p0) +
                          ", \"kind\": \"primary\"}, {\"offset\": " + std::to_string(p0) +
                          ", \"length\": " + std::to_string(g) +
                          ", \"kind\": \"disparity or depth\"}, {\"offset\": " +
                          std::to_string(p0 + g) + ", \"length\": " + std::to_string(g) +
                          ", \"kind\": \"gain map or undefined\"}, {\"offset\": " +
                          std::to_string(p0 + 2 * g) + ", \"length\": " + std::to_string(g) +
                          ", \"kind\": \"appended JPEG\"}]"),
              json::parse(Iqa("inspect --json " + PhotoPath("hdr")).out)["images"]);

    const Bytes plain = PlainPhoto("plain");
    Bytes damaged = original, reaching = original, empty = plain;
    damaged[damaged.size() - 24 - 9 - 12 + 3] = 0x40;  // payload length past the start
    reaching[reaching.size() - 24] = 0xFF;  // other data said to reach into the image data
    const Bytes trailer = iqa_tools::Trailer({{"EMPTY", {}}}, Bytes(9, 8));  // exactly fits
    empty.insert(empty.end(), trailer.begin(), trailer.end());
    // Other data right behind an appended image, where the record chain could close: no record.
    Bytes recordless = plain;
    for (const Bytes& part : {gain, iqa_tools::Trailer({}, Bytes(9, 8))}) {
        recordless.insert(recordless.end(), part.begin(), part.end());
    }
    // Other data right behind the primary image: no room for the record a trailer needs first.
    Bytes bare = plain;
    const Bytes noRecords = iqa_tools::Trailer({}, Bytes(20, 8));
    bare.insert(bare.end(), noRecords.begin(), noRecords.end());
    // A record whose payload is a JPEG stream, right where the image data ends: a record, not a
    // further image.
    Bytes jpegRecord = plain;
    const Bytes thumbRecord = iqa_tools::Trailer({{"THUMB", gain}}, Bytes(9, 8));
    jpegRecord.insert(jpegRecord.end(), thumbRecord.begin(), thumbRecord.end());
    const std::tuple<std::string, Bytes, int, std::string> cases[] = {
        {"byte", Bytes{0xFF}, 1, "no trailer: no JPEG image at the start of the file"},
        {"jpegrecord", jpegRecord, 0, "bytes, primary\nfile header at"},
        {"plain", plain, 1, "no trailer: file too short for a trailer"},
        {"damaged", damaged, 1, "no trailer: a record length points into the image data"},
        {"reaching", reaching, 1, "no trailer: other-data length points into the image data"},
        {"recordless", recordless, 1, "no trailer: no record before the other data"},
        {"bare", bare, 1, "no trailer: other-data length points into the image data"},
        {"empty", empty, 0, "record at " + std::to_string(plain.size()) + ": 0 bytes, tag"}};
    for (const auto& [name, bytes, status, says] : cases) {
        iqa_test::WriteFile(PhotoPath(name), bytes);
        const Result r = Iqa("inspect " + PhotoPath(name));
        EXPECT_EQ(status, r.status) << r.out;
        EXPECT_NE(std::string::npos, r.out.find(says)) << r.out;
        EXPECT_EQ(bytes, iqa_test::ReadFile(PhotoPath(name)));
    }
}

// A camera folder as pulled from a phone after a run: the sample (with its HDR-shaped photo), a
// torn photo, a journal left behind, a copy in a subfolder, and what cannot be read. The scan
// says of each photo what inspect says, names the photos the run flagged, writes nothing, and
// its page shows each flagged photo beside its preview.
TEST_F(Tools, ScanListsWhatThePhoneFlaggedAndTouchesNothing) {
    const std::string root = dir.File("pulled"), camera = root + "/" + iqa_test::kCamera;
    ASSERT_EQ(0, Iqa("sample " + root, false, "", 400).status);
    const json run = json::parse(Iqa("run --json " + root).out);
    Bytes torn = iqa_test::ReadFile(camera + "/IMG_20261122_091002.jpg");
    std::fill(torn.end() - 60, torn.end(), 0);
    iqa_test::WriteFile(camera + "/torn.jpg", torn);
    iqa_test::WriteFile(camera + "/iqathumb/IMG_20261122_090101.jpg.iqajournal", {1, 2, 3});
    iqa_test::MakeDirs(camera + "/sub");
    std::filesystem::copy_file(camera + "/IMG_20261122_091002.jpg", camera + "/sub/COPY.JPEG");
    ASSERT_EQ(0, symlink("..", (root + "/storage/loop").c_str()));
    ASSERT_EQ(0, symlink("nowhere.jpg", (camera + "/gone.jpg").c_str()));
    ASSERT_EQ(0, mkfifo((camera + "/pipe.jpg").c_str(), 0644));
    std::map<std::string, Bytes> before;
    for (const auto& e : std::filesystem::recursive_directory_iterator(root)) {
        if (e.is_regular_file() && !e.is_symlink()) {
            before[e.path()] = iqa_test::ReadFile(e.path());
        }
    }

    const Result scanned = Iqa("scan --json " + root + " -o " + dir.File("scan.html"));
    ASSERT_EQ(0, scanned.status);
    const json scan = json::parse(scanned.out);
    std::set<std::string> flagged, inserted;
    for (const auto& [name, photo] : PhotosOf(run)) {
        if (photo["record"] == "inserted") {
            inserted.insert(std::string(iqa_test::kCamera) + "/" + name + ".jpg");
        }
    }
    const std::map<std::string, std::string> states = {
        {"IMG_20261122_090101.jpg", "unfinished dump"},
        {"IMG_20261122_090859.jpg", "none"},
        {"torn.jpg", "damaged"}};
    for (json photo : scan["photos"]) {
        const std::string file = photo["file"];
        const std::string name = file.substr(file.rfind('/') + 1);
        const auto state = states.find(name);
        EXPECT_EQ(state == states.end() ? "whole" : state->second, photo["trailer"]) << file;
        EXPECT_EQ(photo["trailer"] == "unfinished dump"
                      ? json(std::string(iqa_test::kCamera) + "/iqathumb/" + name + ".iqajournal")
                      : json(nullptr),
                  photo["journal"])
            << file;
        if (photo["flagged"]) {
            flagged.insert(file);
        }
        for (const char* key : {"trailer", "journal", "flagged"}) {
            photo.erase(key);
        }
        EXPECT_EQ(json::parse(Iqa("inspect --json " + file, false, root).out), photo) << file;
    }
    EXPECT_EQ(inserted, flagged);
    EXPECT_EQ(4u, flagged.size());
    EXPECT_EQ(json::parse(R"({"photos": 12, "flagged": 4, "damaged": 1, "unfinished": 1})"),
              scan["summary"]);
    EXPECT_EQ(
        json::parse("[\"cannot read " + iqa_test::kCamera +
                    "/gone.jpg: No such file or directory\", \"cannot read " + iqa_test::kCamera +
                    "/pipe.jpg: not a regular file\", \"storage/loop "
                    "leads back to " +
                    root + " (a folder loop), not followed\"]"),
        scan["problems"]);
    // The HDR-shaped photo's images and every byte of the trailer's end that sample wrote.
    const std::string hdr = camera + "/IMG_20261122_091118.jpg";
    const json layout = json::parse(Iqa("inspect --json " + hdr).out);
    EXPECT_EQ("gain map or undefined", layout["images"][1]["kind"]);
    const Bytes photo = iqa_test::ReadFile(hdr);
    Bytes end(64, 0x5C);
    const char header[] = "\x40\0\0\0CAMERA-TRAILER v1.00";
    end.insert(end.end(), header, header + 24);
    EXPECT_EQ(end, Bytes(photo.end() - 88, photo.end()));
    const char faces[] = "\x60\0\0\0FACEDET";
    EXPECT_EQ(Bytes(faces, faces + 12), Bytes(photo.end() - 100, photo.end() - 88));
    for (const auto& [path, bytes] : before) {
        EXPECT_EQ(bytes, iqa_test::ReadFile(path)) << path << " changed";
    }
    EXPECT_EQ(
        (Result{1, "iqa scan: cannot read " + dir.File("none") + ": No such file or directory\n"}),
        Iqa("scan " + dir.File("none"), true));

    // The page, in a 1400-pixel window: flagged photos first, each with its three images.
    const Result dom =
        BrowserDom(dir.File("scan.html"),
                   "<script>addEventListener('load', () => document.body.dataset.fit "
                   "= document.documentElement.scrollWidth <= innerWidth)</script>");
    ASSERT_EQ(0, dom.status);
    EXPECT_NE(std::string::npos, dom.out.find("data-fit=\"true\"")) << "the page is wider";
    EXPECT_EQ(std::string::npos, dom.out.find("class=\"broken\"")) << "an image not shown";
    EXPECT_NE(std::string::npos, dom.out.find("not the score the phone computed"));
    std::set<std::string> shown;
    const std::string row = "<tr class=\"flagged\" id=\"photo-";
    for (size_t at = dom.out.find(row); at != std::string::npos; at = dom.out.find(row, at + 1)) {
        const size_t name = at + row.size(), rowEnd = dom.out.find("</tr>", at);
        shown.insert(dom.out.substr(name, dom.out.find('"', name) - name));
        int images = 0;
        for (size_t i = dom.out.find("<img ", name); i < rowEnd; i = dom.out.find("<img ", i + 1)) {
            ++images;
        }
        EXPECT_EQ(3, images) << dom.out.substr(name, 60);
        EXPECT_LT(at, dom.out.find("<tr class=\"other\"")) << "flagged photos come first";
    }
    EXPECT_EQ(flagged, shown);
}

TEST_F(Tools, ExtractWritesThePreviewInTheFormatOfItsName) {
    // A smooth image: NV12 keeps it within the colour conversion's rounding.
    const int w = 40, h = 30;
    Bytes rgb;
    for (int i = 0; i < w * h; ++i) {
        rgb.insert(rgb.end(), {static_cast<unsigned char>(40 + i % w * 4),
                               static_cast<unsigned char>(60 + i / w * 5), 128});
    }
    Photo("p", scene);
    IQA::ImageDumpExpand d = {w, h, w, w * h * 3 / 2, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(PhotoPath("p"), iqa_ref::Nv12(rgb.data(), w, h).data(), &d);
    for (const char* name : {"preview.png", "preview.PPM", "preview.jpeg"}) {
        ASSERT_EQ(0, Iqa("extract " + PhotoPath("p") + " " + dir.File(name)).status) << name;
    }
    int width = 0, height = 0;
    const Bytes shown = ReadPng(dir.File("preview.png"), &width, &height);
    ASSERT_EQ(rgb.size(), shown.size());
    EXPECT_EQ(w, width);
    for (size_t i = 0; i < rgb.size(); ++i) {
        // A truncating conversion, and 2 x 2 chroma of a smooth ramp.
        ASSERT_LE(std::abs(shown[i] - rgb[i]), 8) << i;
    }
    Bytes ppm = {'P', '6', '\n', '4', '0', ' ', '3', '0', '\n', '2', '5', '5', '\n'};
    ppm.insert(ppm.end(), shown.begin(), shown.end());
    EXPECT_EQ(ppm, iqa_test::ReadFile(dir.File("preview.PPM")));
    EXPECT_EQ(0xD8, iqa_test::ReadFile(dir.File("preview.jpeg")).at(1)) << "a JPEG";
}

TEST_F(Tools, AnomalyReportsAGreenFrame) {
    iqa_test::WriteFile(dir.File("green.yuv"), Bytes(64 * 48 * 3 / 2, 0));
    const Result green = Iqa("anomaly " + dir.File("green.yuv") + " 64 48 64 frame.jpg");
    EXPECT_EQ(0, green.status);
    EXPECT_NE(std::string::npos, green.out.find("with abnormal green screen!"));
    EXPECT_NE(std::string::npos, green.out.find("name \"frame.jpg\", type 0 (green screen)"));
    EXPECT_EQ(1, Iqa("anomaly " + dir.File("green.yuv") + " 640 480 640 big").status);
}

// 64-bit FNV-1a, the journal's checksum; `words`: over little-endian 64-bit words, the last one
// padded with zeros, the hash of the bytes in front of the insertion point.
uint64_t Fnv(Bytes bytes, bool words = false) {
    bytes.resize(words ? (bytes.size() + 7) / 8 * 8 : bytes.size(), 0);
    uint64_t hash = 0xcbf29ce484222325ULL;
    for (size_t i = 0; i < bytes.size(); i += words ? 8 : 1) {
        uint64_t unit = bytes[i];
        for (int b = 1; words && b < 8; ++b) {
            unit |= static_cast<uint64_t>(bytes[i + b]) << (8 * b);
        }
        hash = (hash ^ unit) * 0x100000001b3ULL;
    }
    return hash;
}

void Append64(Bytes* bytes, uint64_t value) {
    for (int i = 0; i < 8; ++i) {
        bytes->push_back(static_cast<unsigned char>(value >> (8 * i)));
    }
}

// Journals made by hand in the documented format (magic, four little-endian fields, the new
// tail, FNV-1a of all that) and in the first one (six fields: device and inode, which no longer
// count, and the FNV-1a of only the 4 KiB in front) are replayed; an empty one, which only
// damage leaves, is discarded.
TEST_F(Tools, RecoverReplaysJournalsOfTheDocumentedFormats) {
    const IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    const std::string folder = Root() + iqa_test::kCamera + "/iqathumb/";
    iqa_test::MakeDirs(folder);
    Bytes expected;
    for (const bool first : {true, false}) {  // p, whose bytes are checked, last
        const std::string name = first ? "r" : "p";
        const Bytes original = Photo(name, scene);
        const size_t at = iqa_ref::LastRecordIfWhole(original);
        expected = iqa_ref::WithRecord(original, at, Bytes(24, 5), d);
        const auto tail = expected.begin() + static_cast<long>(at);
        const Bytes front(original.begin() + static_cast<long>(first ? at - 4096 : 0),
                          original.begin() + static_cast<long>(at));
        Bytes journal = {'I', 'Q', 'A', 'J',
                         'R', 'N', 'L', static_cast<unsigned char>(first ? '1' : '2')};
        std::vector<uint64_t> fields = {uint64_t{original.size()}, uint64_t{at}, Fnv(front, !first),
                                        static_cast<uint64_t>(expected.end() - tail)};
        if (first) {
            fields.insert(fields.begin(), {7, 7});
        }
        for (uint64_t field : fields) {
            Append64(&journal, field);
        }
        journal.insert(journal.end(), tail, expected.end());
        Append64(&journal, Fnv(journal));
        iqa_test::WriteFile(folder + name + ".jpg.iqajournal", journal);
    }
    Photo("q", scene);
    iqa_test::WriteFile(folder + "q.jpg.iqajournal", {});
    EXPECT_EQ((Result{0,
                      "recover: completed the record in storage/emulated/0/DCIM/Camera/p.jpg\n"
                      "recover: discarded a damaged journal of "
                      "storage/emulated/0/DCIM/Camera/q.jpg\n"
                      "recover: completed the record in storage/emulated/0/DCIM/Camera/r.jpg\n"}),
              Iqa("recover " + Root(), true));
    EXPECT_EQ(expected, iqa_test::ReadFile(PhotoPath("p")));
    EXPECT_EQ((Result{0, ""}), Iqa("recover " + Root(), true));  // nothing is left to do
}

// Status 1 and one line naming the file for bad input, status 2 and one line for bad usage;
// never a wait or an abort.
TEST_F(Tools, BadInputAndUsageGiveOneLine) {
    const std::string photo = PhotoPath("p"), fifo = dir.File("fifo.png");
    const std::string folder = dir.File("folder.png");
    const Bytes file = Photo("p", scene);
    IQA::ImageDumpExpand d = {4, 4, 4, 24, 1, "Iqa_comparessim", {}};
    IQA::IqaUpLoad().SaveCustomBuffer(photo, Bytes(24, 1).data(), &d);
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0644));
    iqa_test::MakeDirs(folder);
    const std::string thumb = ThumbPath("p"), text = dir.File("text.jpg");
    iqa_test::WriteFile(dir.File("bad.thumbnail"), iqa_test::ThumbnailHeaderOnly(80, -60));
    iqa_test::WriteFile(dir.File("tiny.thumbnail"),
                        iqa_tools::ThumbnailFile(4, 4, Bytes(4 * 4 * 3, 9)));
    iqa_test::WriteFile(text, Bytes(100, 'x'));
    iqa_test::WriteFile(dir.File("cut.jpg"), Bytes(file.begin(), file.begin() + 200));
    const std::vector<std::pair<int, std::string>> cases = {
        {1, "inspect " + folder},
        {1, "inspect " + fifo},
        {1, "inspect " + dir.File("gone")},
        {1, "extract " + folder + " " + dir.File("out.jpg")},
        {1, "extract " + photo + " " + fifo},
        {1, "extract " + photo + " " + folder},
        {1, "anomaly " + fifo + " 4 4 4 frame"},
        {1, "recover " + folder},
        {1, "compare " + text + " " + thumb},
        {1, "compare " + dir.File("cut.jpg") + " " + thumb},
        {1, "compare " + photo + " " + dir.File("bad.thumbnail")},
        {1, "compare " + photo + " " + dir.File("tiny.thumbnail")},
        {1, "compare " + photo + " " + thumb + " --heatmap " + folder},
        {1, "import " + Root() + " " + text},
        {1, "import " + Root() + " --thumb 8x100 " + photo},
        {1, "report " + folder},
        {2, ""},
        {2, "frobnicate"},
        {2, "extract " + photo + " " + dir.File("out.gif")},
        {2, "compare --worst -1 " + photo + " " + thumb},
        {2, "import " + Root() + " --thumb 9x " + photo},
        {2, "run --json --csv " + Root()},
        {2, "anomaly " + fifo + " 4 4 four frame"},
    };
    for (const auto& [status, arguments] : cases) {
        const Result r = Iqa(arguments, true);
        EXPECT_EQ(status, r.status) << arguments << ": " << r.out;
        EXPECT_EQ(0u, r.out.rfind("iqa", 0)) << arguments << ": " << r.out;
        EXPECT_EQ(r.out.size() - 1, r.out.find('\n')) << "one line: " << r.out;
    }
}

}  // namespace
