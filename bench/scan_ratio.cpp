// iqa_scan_ratio: what iqa scan costs on a phone's whole camera folder, against a whole decode of
// the same photo, measured side by side in alternating rounds in one process. The folder holds
// 200 copies of a 4000 x 3000 camera photo with its trailer, 10 of them flagged (a record of the
// library's inserted by its own reply). Prints
//   "scan per photo <ms> <floor ms> <ratio>": a scan without the page, per photo (an unflagged
//     photo is judged from its markers and trailer alone; target <= 0.03);
//   "page per flagged photo <ms> <floor ms> <ratio>": what -o adds, per flagged photo (each is
//     decoded at 1/4 scale and reduced for the page; target <= 1).
#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "IqaTaskManager.h"
#include "bench/BenchData.h"
#include "common/CameraLayout.h"
#include "tools/commands/CommandCores.h"

namespace {

namespace fs = std::filesystem;
using iqa_bench::Bytes;
using iqa_bench::FloorSource;

constexpr int kPhotos = 200, kFlagged = 10;

void Quiet(const struct __android_logger_data*, const char*) {}

double Milliseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The folder as pulled from a phone: photos spread the way a phone names them, flagged ones among
// the others, each file its own copy.
std::string MakeFolder(const iqa_bench::Photo& photo) {
    const iqa_bench::CameraRoot root(photo, 1280, 960);
    root.Restock();
    const fs::path camera = fs::path(root.root()) / IQA::kCameraFolder;
    const std::string plain = (camera / (iqa_bench::CameraRoot::Name(0) + ".jpg")).string();
    const std::string flagged = (camera / (iqa_bench::CameraRoot::Name(1) + ".jpg")).string();
    const std::string start = fs::current_path().string();
    fs::current_path(root.root());
    const Bytes thumb = iqa_bench::ThumbnailRgb(photo, 1280, 960);
    IQA::IqaTaskManager().IqaReply(iqa_bench::CameraRoot::Name(1), thumb.data(), 1280, 960);
    fs::current_path(start);
    const std::string folder = iqa_bench::WorkDir() + "/Camera";
    fs::create_directories(folder);
    for (int i = 0; i < kPhotos; ++i) {
        char name[40];
        snprintf(name, sizeof(name), "/IMG_20261124_%06d.jpg", 100000 + 37 * i);
        fs::copy_file(i % (kPhotos / kFlagged) == 7 ? flagged : plain, folder + name);
    }
    return folder;
}

void Measure(int rounds) {
    const iqa_bench::Photo& photo = iqa_bench::Photos().front();
    const std::string folder = MakeFolder(photo);
    iqa_bench::FloorBuffers buffers;
    const std::string jpeg = iqa_bench::PhotoJpegPath(photo);
    size_t pageBytes = 0;
    const auto scan = [&](bool page) {
        return Milliseconds([&] {
            iqa_tools::FolderScan result;
            iqa_tools::Failure failure;
            if (!iqa_tools::ScanFolder(folder, false, &result, &failure) ||
                result.photos.size() != kPhotos) {
                fprintf(stderr, "the scan failed: %s\n", failure.reason.c_str());
                exit(1);
            }
            pageBytes = page ? iqa_tools::ScanReport(result, false).size() : pageBytes;
        });
    };
    const std::vector<std::function<double()>> variants = {
        [&] { return Milliseconds([&] { FloorDecode(jpeg, FloorSource::kMemory, &buffers); }); },
        [&] { return Milliseconds([&] { FloorDecode(jpeg, FloorSource::kStdio, &buffers); }); },
        [&] { return scan(false); }, [&] { return scan(true); }};
    std::vector<std::vector<double>> times(variants.size());
    for (int round = -1; round < rounds; ++round) {  // round -1 warms caches up and is dropped
        for (size_t i = 0; i < variants.size(); ++i) {
            const size_t v = (i + static_cast<size_t>(round + 1)) % variants.size();
            const double ms = variants[v]();
            if (round >= 0) {
                times[v].push_back(ms);
            }
        }
    }
    const double floorMs = std::min(Median(times[0]), Median(times[1]));
    const double scanMs = Median(times[2]), pageMs = Median(times[3]);
    const double perPhoto = scanMs / kPhotos, perFlagged = (pageMs - scanMs) / kFlagged;
    printf("folder %d photos of %s, %d flagged; scan %.1f ms, with the page %.1f ms (%zu KB)\n",
           kPhotos, iqa_bench::Name(photo).c_str(), kFlagged, scanMs, pageMs, pageBytes / 1000);
    printf("scan per photo %.3f %.2f %.4f (target <= 0.03)\n", perPhoto, floorMs,
           perPhoto / floorMs);
    printf("page per flagged photo %.2f %.2f %.3f (target <= 1)\n", perFlagged, floorMs,
           perFlagged / floorMs);
}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(Quiet);
    int rounds = 7;
    if (argc == 3 && std::strcmp(argv[1], "--rounds") == 0) {
        rounds = std::max(1, std::atoi(argv[2]));
    } else if (argc != 1) {
        fputs("usage: iqa_scan_ratio [--rounds N]   (N >= 1, default 7)\n", stderr);
        return 2;
    }
    printf("rounds %d after a warm-up round; medians; work folder %s\n", rounds,
           iqa_bench::WorkDir().c_str());
    Measure(rounds);
    fs::remove_all(iqa_bench::WorkDir());
    return 0;
}
