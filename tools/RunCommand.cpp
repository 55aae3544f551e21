// iqa run: registers the thumbnails of a camera root in batches and has the library evaluate
// them on its worker thread, exactly as the camera host does, then tabulates the outcome.
#include <android/log.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

#include "Commands.h"
#include "IqaTaskManager.h"
#include "RunObserver.h"

namespace iqa_tools {

namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: iqa run [--log] [DIR]\n"
    "\n"
    "Takes DIR (default: the current folder) as the working directory, registers the base names\n"
    "of the thumbnails in storage/emulated/0/DCIM/Camera/cache in batches of at most five, sends\n"
    "a begin request per batch and prints, per photo, the compared size, the SSIM, the verdict\n"
    "and whether a record was inserted into the photo. Progress goes to standard error.\n"
    "\n"
    "  --log   also show the library's log lines as they come\n";

constexpr size_t kBatchSize = 5;  // the registry's capacity
constexpr std::chrono::seconds kStallLimit{600};

RunObserver* gObserver = nullptr;

void ObserveLog(const struct __android_logger_data* data, const char* message) {
    gObserver->OnLog(data->priority, data->tag != nullptr ? data->tag : "", message);
}

std::vector<std::string> BaseNames(const std::string& folder, const std::string& suffix) {
    std::vector<std::string> names;
    std::error_code error;
    for (const fs::directory_entry& e : fs::directory_iterator(folder, error)) {
        const std::string file = e.path().filename().string();
        if (e.is_regular_file() && file.size() > suffix.size() &&
            file.compare(file.size() - suffix.size(), suffix.size(), suffix) == 0) {
            names.push_back(file.substr(0, file.size() - suffix.size()));
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string PhotoPath(const std::string& name) {
    return std::string(kCameraFolder) + "/" + name + ".jpg";
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

std::string Size(int width, int height) {
    return width > 0 ? std::to_string(width) + "x" + std::to_string(height) : "-";
}

std::string RecordColumn(const PhotoOutcome& o, uintmax_t before, uintmax_t after) {
    if (after > before) {
        return "inserted (+" + std::to_string(after - before) + " bytes)";
    }
    if (o.verdict != "low") {
        return "-";
    }
    return "not inserted: " +
           (o.dumpError.empty() ? std::string("photo has no trailer") : o.dumpError);
}

void PrintTable(const std::vector<std::string>& photos,
                const std::map<std::string, PhotoOutcome>& outcomes,
                const std::map<std::string, uintmax_t>& sizesBefore) {
    printf("%-22s %-10s %-9s %-58s %s\n", "photo", "compared", "ssim", "verdict", "record");
    for (const std::string& name : photos) {
        const auto found = outcomes.find(name);
        PhotoOutcome o = found != outcomes.end() ? found->second : PhotoOutcome();
        if (found == outcomes.end()) {
            o.verdict = "no result", o.reason = "no thumbnail in the cache folder";
        }
        const bool compared = o.scored && (o.verdict == "high" || o.verdict == "low");
        const std::string verdict =
            o.reason.empty() || compared ? o.verdict : o.verdict + ": " + o.reason;
        const std::string size = compared
                                     ? (o.thumbWidth * o.thumbHeight <= o.photoWidth * o.photoHeight
                                            ? Size(o.thumbWidth, o.thumbHeight)
                                            : Size(o.photoWidth, o.photoHeight))
                                     : "-";
        char ssim[32] = "-";
        if (o.scored) {
            snprintf(ssim, sizeof(ssim), "%.6f", o.ssim);
        }
        printf("%-22s %-10s %-9s %-58s %s\n", name.c_str(), size.c_str(), ssim, verdict.c_str(),
               RecordColumn(o, sizesBefore.at(name), FileSize(PhotoPath(name))).c_str());
    }
}

}  // namespace

int RunCommand(const Args& args) {
    if (WantsHelp(args, kUsage)) {
        return 0;
    }
    bool echo = false;
    std::string dir = ".";
    for (const std::string& a : args) {
        if (a == "--log") {
            echo = true;
        } else if (dir == "." && a[0] != '-') {
            dir = a;
        } else {
            return UsageError("run", "unexpected argument '" + a + "'", kUsage);
        }
    }
    if (chdir(dir.c_str()) != 0 || !fs::is_directory(kCameraFolder)) {
        fprintf(stderr, "iqa run: %s has no camera folder %s\n", dir.c_str(), kCameraFolder);
        return 1;
    }
    RecoverCameraRoot();  // so that the sizes below are the photos' own
    const std::vector<std::string> jpegs = BaseNames(kCameraFolder, ".jpg");
    const std::vector<std::string> thumbnails = BaseNames(kCacheFolder, ".thumbnail");
    std::map<std::string, uintmax_t> sizesBefore;  // every photo and every thumbnail's photo
    for (const std::vector<std::string>* names : {&jpegs, &thumbnails}) {
        for (const std::string& name : *names) {
            sizesBefore[name] = FileSize(PhotoPath(name));
        }
    }
    std::vector<std::string> photos;
    for (const auto& entry : sizesBefore) {
        photos.push_back(entry.first);
    }
    fprintf(stderr, "%zu photos, %zu thumbnails\n", jpegs.size(), thumbnails.size());

    RunObserver observer(echo);
    gObserver = &observer;
    __android_log_set_logger(ObserveLog);
    const bool completed = Evaluate(thumbnails, observer);  // the manager is destroyed inside
    __android_log_set_logger(__android_log_stderr_logger);
    if (!completed) {
        fprintf(stderr, "iqa run: the library stopped reporting progress; run aborted\n");
        return 1;
    }
    PrintTable(photos, observer.Outcomes(), sizesBefore);
    return 0;
}

}  // namespace iqa_tools
