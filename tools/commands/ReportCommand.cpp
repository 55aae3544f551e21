// iqa report: the last run over a camera root as one HTML page. Each photo is evaluated again with
// the thumbnail the run kept, to show what the SSIM stage compared and where the blocks disagree;
// the preview comes from the photo's own trailer.
#include <cstdio>
#include <filesystem>
#include <memory>

#include "tools/commands/Commands.h"
#include "tools/commands/Terminal.h"
#include "tools/files/Nv12Image.h"
#include "tools/report/Heatmap.h"
#include "tools/report/ReportPage.h"

namespace iqa_tools {

namespace {

namespace fs = std::filesystem;

constexpr int kOutlinedBlocks = 5;

struct ReportOptions {
    std::string dir = ".";
    std::string out;  // default: DIR/iqa-last-run/report.html
};

std::string SizeText(const Image& image) {
    return std::to_string(image.width) + "x" + std::to_string(image.height);
}

void AddComparison(const PhotoResult& result, ReportRow* row) {
    const std::string kept =
        std::string(kLastRunFolder) + "/thumbnails/" + result.name + kThumbnailSuffix;
    const PairEvaluation e =
        EvaluatePair(std::string(kCameraFolder) + "/" + result.name + kPhotoSuffix, kept);
    if (!e.ok) {
        row->thumbnail.caption = row->photo.caption = row->heatmap.caption = e.error;
        return;
    }
    row->thumbnail = Shown(e.thumbImage, "as compared, " + SizeText(e.thumbImage));
    row->photo = Shown(e.photoImage, "as compared, " + SizeText(e.photoImage));
    row->heatmap = Shown(
        RenderHeatmap(e, WorstBlocks(e, kOutlinedBlocks)),
        "violet 0 to yellow 1, grey where the SSIM reads nothing; the 5 worst blocks outlined");
    PhotoResult now = result;
    now.ssim = e.ssim;
    if (SsimText(now) != SsimText(result)) {  // the run knows the SSIM as logged
        row->note =
            "the photo or its thumbnail changed since the run (SSIM now " + SsimText(now) + ")";
    }
}

void AddPreview(const PhotoResult& result, ReportRow* row) {
    Bytes file;
    std::string why;
    Image preview;
    uint64_t at = 0;
    const std::string photo = std::string(kCameraFolder) + "/" + result.name + kPhotoSuffix;
    if (!ReadWholeFile(photo, &file, &why) || !NewestPreview(file, &preview, &at, &why)) {
        row->preview.caption = why;
        return;
    }
    row->preview =
        Shown(preview, SizeText(preview) + " NV12, record at byte " + std::to_string(at));
}

ReportRow RowOf(const PhotoResult& result) {
    ReportRow row;
    row.result = result;
    const std::string none = "no comparison: " + result.problem;
    row.thumbnail.caption = row.photo.caption = row.heatmap.caption = none;
    if (result.verdict == "high" || result.verdict == "low") {
        AddComparison(result, &row);
    }
    AddPreview(result, &row);
    return row;
}

bool ReadResults(const std::string& dir, std::vector<PhotoResult>* results) {
    const std::string path = std::string(kLastRunFolder) + "/results.json";
    Bytes bytes;
    std::string why;
    if (!ReadWholeFile(path, &bytes, &why)) {
        fprintf(stderr, "iqa report: cannot read %s/%s: %s (run iqa run %s first)\n", dir.c_str(),
                path.c_str(), why.c_str(), dir.c_str());
        return false;
    }
    const nlohmann::ordered_json document = nlohmann::ordered_json::parse(bytes, nullptr, false);
    if (document.is_discarded() || !FromJson(document, results)) {
        fprintf(stderr, "iqa report: %s/%s is not the results of iqa run\n", dir.c_str(),
                path.c_str());
        return false;
    }
    return true;
}

int Report(const ReportOptions& o) {
    const fs::path out = fs::absolute(
        o.out.empty() ? fs::path(o.dir) / kLastRunFolder / "report.html" : fs::path(o.out));
    std::vector<PhotoResult> results;
    if (!EnterCameraRoot("report", o.dir) || !ReadResults(o.dir, &results)) {
        return 1;
    }
    std::vector<ReportRow> rows;
    Progress progress(results.size());
    for (const PhotoResult& result : results) {
        progress.Show(rows.size(), result.name);
        rows.push_back(RowOf(result));
    }
    progress.Clear();
    const std::string page = ReportPage(fs::current_path().string(), std::move(rows));
    if (!WriteWholeFile(out.string(), Bytes(page.begin(), page.end()))) {
        fprintf(stderr, "iqa report: cannot write %s: %s\n", out.c_str(), FileError().c_str());
        return 1;
    }
    printf("%s\n", out.c_str());
    return 0;
}

}  // namespace

void AddReportCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<ReportOptions>();
    CLI::App* command = app.add_subcommand(
        "report",
        "Write the last iqa run over a camera root as one self-contained HTML page: per photo the "
        "verdict, SSIM, compared size and record, the thumbnail and the reduced photo as the SSIM "
        "stage compared them, the map of block SSIMs, and the preview stored in the photo. Low "
        "verdicts come first; the page sorts by SSIM. Prints the page's path.");
    command->add_option("DIR", options->dir, "camera root (default: the current folder)");
    command->add_option("-o,--output", options->out,
                        "the page to write (default: DIR/iqa-last-run/report.html)");
    command->callback([options, status] { *status = Report(*options); });
}

}  // namespace iqa_tools
