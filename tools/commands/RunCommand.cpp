// iqa run: registers the thumbnails of a camera root in batches and has the library evaluate
// them on its worker thread, exactly as the camera host does, then reports the outcome per
// photo: as a table, JSON or CSV. Keeps the results and the thumbnails for iqa report.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "IqaTaskManager.h"
#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/commands/LibraryLog.h"
#include "tools/commands/RunObserver.h"
#include "tools/commands/RunResults.h"

namespace iqa_tools {

namespace {

namespace fs = std::filesystem;

constexpr size_t kBatchSize = 5;  // the registry's capacity
constexpr std::chrono::seconds kStallLimit{600};

struct RunOptions {
    std::string dir = ".";
    bool log = false;
    bool json = false;
    bool csv = false;
};

std::vector<std::string> BaseNames(const std::string& folder, const std::string& suffix) {
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& e : fs::directory_iterator(folder, error)) {
        const std::string file = e.path().filename().string();
        if (e.is_regular_file(error) && file.size() > suffix.size() &&
            file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0) {
            names.push_back(file.substr(0, file.size() - suffix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string PhotoPath(const std::string& name) {
    return std::string(kCameraFolder) + "/" + name + kPhotoSuffix;
}

uintmax_t FileSize(const std::string& path) {
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    return error ? 0 : size;
}

bool Evaluate(const std::vector<std::string>& names, RunObserver& observer) {
    IQA::IqaTaskManager manager;
    for (size_t first = 0; first < names.size(); first += kBatchSize) {
        const std::vector<std::string> batch(
            names.begin() + static_cast<long>(first),
            names.begin() + static_cast<long>(std::min(names.size(), first + kBatchSize)));
        observer.BeginBatch(batch);
        for (const std::string& name : batch) {
            manager.AddRequest(Request{REQUEST_REGISTER_TASK, name, false});
        }
        // A begin request sent before a registration is worked off would be dropped.
        if (!observer.WaitRegistered(kStallLimit)) {
            return false;
        }
        manager.AddRequest(Request{REQUEST_BEGIN_PROCESS, "", false});
        if (!observer.WaitBatchDone(kStallLimit)) {
            return false;
        }
    }
    return true;
}

// The thumbnails as the camera wrote them, kept for iqa report: the run deletes them.
void KeepThumbnails(const std::vector<std::string>& names) {
    const fs::path kept = fs::path(kLastRunFolder) / "thumbnails";
    std::error_code error;
    fs::remove_all(kLastRunFolder, error);
    fs::create_directories(kept, error);
    for (const std::string& name : names) {
        const std::string file = name + kThumbnailSuffix;
        fs::copy_file(fs::path(kCacheFolder) / file, kept / file, error);
    }
}

PhotoResult ResultOf(const std::string& name, const PhotoOutcome* o, uintmax_t before,
                     uintmax_t after) {
    PhotoResult r;
    r.name = name;
    if (o == nullptr) {
        r.verdict = "no result", r.problem = "no thumbnail in the cache folder", r.record = "none";
        return r;
    }
    r.verdict = o->verdict;
    r.scored = o->scored;
    r.ssim = o->ssim;
    r.thumbnail = {o->thumbWidth, o->thumbHeight};
    r.photo = {o->photoWidth, o->photoHeight};
    const bool compared = o->scored && (o->verdict == "high" || o->verdict == "low");
    r.problem = compared ? "" : o->reason;
    if (compared) {  // the smaller image's size; the larger one is reduced to it
        const bool thumbSmaller =
            int64_t{o->thumbWidth} * o->thumbHeight <= int64_t{o->photoWidth} * o->photoHeight;
        r.compared = thumbSmaller ? r.thumbnail : r.photo;
    }
    if (after > before) {
        r.record = "inserted", r.recordBytes = after - before;
    } else if (o->verdict == "low") {
        r.record = "not inserted";
        r.recordProblem = o->dumpError.empty() ? "photo has no trailer" : o->dumpError;
    } else {
        r.record = "none";
    }
    return r;
}

}  // namespace

bool RunCameraRoot(bool echo, bool showProgress, std::vector<PhotoResult>* results,
                   Failure* failure) {
    std::vector<std::string> recovered;
    RecoverCameraRoot(&recovered);  // so that the sizes below are the photos' own
    for (const std::string& line : recovered) {
        fprintf(stderr, "recover: %s\n", line.c_str());
    }
    const std::vector<std::string> jpegs = BaseNames(kCameraFolder, kPhotoSuffix);
    const std::vector<std::string> thumbnails = BaseNames(kCacheFolder, kThumbnailSuffix);
    std::map<std::string, uintmax_t> sizesBefore;  // every photo and every thumbnail's photo
    for (const std::vector<std::string>* names : {&jpegs, &thumbnails}) {
        for (const std::string& name : *names) {
            sizesBefore[name] = FileSize(PhotoPath(name));
        }
    }
    // A run with nothing to evaluate leaves the last one for iqa report.
    const bool evaluates = !thumbnails.empty();
    if (evaluates) {
        KeepThumbnails(thumbnails);
    } else {
        fprintf(stderr, "iqa run: no thumbnails in %s; %s keeps the previous run\n", kCacheFolder,
                kLastRunFolder);
    }
    Progress progress(showProgress ? thumbnails.size() : 0);
    RunObserver observer(echo, &progress);
    bool completed = false;
    {
        const LibraryLog capture([&](int priority, const char* tag, const char* message) {
            observer.OnLog(priority, tag, message);
        });
        completed = Evaluate(thumbnails, observer);  // the manager is destroyed inside
    }
    progress.Clear();
    if (!completed) {
        failure->reason = "the library stopped reporting progress; run aborted";
        return false;
    }
    const std::map<std::string, PhotoOutcome> outcomes = observer.Outcomes();
    for (const auto& [name, before] : sizesBefore) {
        const auto found = outcomes.find(name);
        results->push_back(ResultOf(name, found == outcomes.end() ? nullptr : &found->second,
                                    before, FileSize(PhotoPath(name))));
    }
    if (evaluates) {
        std::ofstream(fs::path(kLastRunFolder) / "results.json")
            << ToJson(fs::current_path().string(), *results).dump(1) << "\n";
    }
    return true;
}

namespace {

int Run(const RunOptions& options) {
    if (!EnterCameraRoot("run", options.dir)) {
        return 1;
    }
    std::vector<PhotoResult> results;
    Failure failure;
    if (!RunCameraRoot(options.log, true, &results, &failure)) {
        fprintf(stderr, "iqa run: %s\n", failure.reason.c_str());
        return 1;
    }
    const std::string out = options.json
                                ? ToJson(fs::current_path().string(), results).dump(2) + "\n"
                            : options.csv ? ToCsv(results)
                                          : ToTable(results);
    fputs(out.c_str(), stdout);
    return 0;
}

}  // namespace

void AddRunCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<RunOptions>();
    CLI::App* command = app.add_subcommand(
        "run",
        "Evaluate a camera root as the camera host does: register the base names of the "
        "thumbnails in its cache folder in batches of at most five, send a begin request per "
        "batch, and report per photo the compared size, the SSIM, the verdict and whether a "
        "record was inserted. Completes interrupted dumps first. Keeps the results and the "
        "thumbnails in DIR/iqa-last-run for iqa report. A progress bar goes to standard error "
        "when it is a terminal.");
    command->add_option("DIR", options->dir, "camera root (default: the current folder)");
    command->add_flag("--log", options->log, "also show the library's log lines as they come");
    auto* json = command->add_flag("--json", options->json, "one JSON document (see README)");
    command->add_flag("--csv", options->csv, "CSV, one line a photo")->excludes(json);
    command->callback([options, status] { *status = Run(*options); });
}

}  // namespace iqa_tools
