// iqa_ratio: the batch run's cost per photo against the floor (a bare libjpeg decode of the same
// photo), measured side by side: the floor and every thumbnail size take turns within each round,
// so a busy moment of the machine falls on all of them alike. Prints one line per pair that a
// script can read, "ratio <thumbnail WxH> <photo WxH> <batch ms> <floor ms> <ratio>"; then per
// pair the bound, "bound <thumbnail WxH> <photo WxH> <region ms> <floor ms> <ratio>": libjpeg
// decoding only the rows whose reduced bytes the SSIM reads and stopping there, the least a batch
// run can cost on this machine whatever the library does; then the memory a run adds at its peak
// and the reply's cost. A progressive photo is named WxH-progressive. Per pair, too, the file work
// any batch run must do on the thumbnail, "files <thumbnail WxH> <photo WxH> <ms> <bound ms>
// <ratio to the bound>": what the kernel spends on top of the bound whatever the library computes.
#include <android/log.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "IqaTaskManager.h"
#include "bench/BenchData.h"
#include "common/CameraLayout.h"
#include "process/BlockSsim.h"
#include "tools/files/CameraFiles.h"

namespace {

namespace fs = std::filesystem;
using iqa_bench::Bytes;
using iqa_bench::CameraRoot;
using iqa_bench::FloorSource;
using iqa_bench::Photo;

constexpr int kThumbnails[][2] = {{1280, 960}, {320, 240}};
// Timed variants per thumbnail size: the batch run, the bound through both readers, the files.
constexpr size_t kPerThumbnail = 4;

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

size_t ProcStatusKb(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0) {
            return std::stoul(line.substr(line.find(':') + 1));
        }
    }
    return 0;
}

// One batch run over the root's photos, from the cache thumbnails put back beforehand; returns
// the milliseconds it took per photo. The run executes on this thread, as it would on the worker.
double BatchRunPerPhoto(IQA::IqaTaskManager& manager, const CameraRoot& root) {
    root.Restock();
    fs::current_path(root.root());
    for (int i = 0; i < CameraRoot::kBatch; ++i) {
        manager.RegisterTask(CameraRoot::Name(i));
    }
    return Milliseconds([&] { manager.BeginProcess(); }) / CameraRoot::kBatch;
}

// The least file work a batch run does on a photo's thumbnail, whatever it computes: moving it
// into the backup folder, reading the pixels whose bytes the SSIM reads, proving the rest readable
// without copying it (by asking the page cache whether it holds every page) and deleting it, which
// frees its pages. Plain system calls: the library's own file work cannot cost less. Milliseconds
// per photo; `scratch` holds what is read.
double ThumbnailFilesPerPhoto(const CameraRoot& root, const int* thumbnail, Bytes* scratch) {
    root.Restock();
    fs::current_path(root.root());
    const size_t whole = 16 + static_cast<size_t>(thumbnail[0]) * thumbnail[1] * 4;
    scratch->resize(16 + (IQA::BlockSsimReach(thumbnail[0], thumbnail[1]) + 2) / 3 * 4);
    std::vector<unsigned char> pages((whole + 4095) / 4096);
    bool done = true;
    const double ms = Milliseconds([&] {
        mkdir(IQA::kBackupFolder, 0775);
        for (int i = 0; i < CameraRoot::kBatch; ++i) {
            const std::string name = "/" + CameraRoot::Name(i) + IQA::kThumbnailSuffix;
            const std::string backup = IQA::kBackupFolder + name;
            done &= rename((IQA::kCacheFolder + name).c_str(), backup.c_str()) == 0;
            const int fd = open(backup.c_str(), O_RDONLY | O_CLOEXEC);
            done &= pread(fd, scratch->data(), scratch->size(), 0) ==
                    static_cast<ssize_t>(scratch->size());
            void* view = mmap(nullptr, whole, PROT_READ, MAP_SHARED, fd, 0);
            done &= view != MAP_FAILED && mincore(view, whole, pages.data()) == 0;
            munmap(view, whole);
            done &= remove(backup.c_str()) == 0 && close(fd) == 0;
        }
    });
    if (!done) {
        fputs("iqa_ratio: the thumbnail file work failed\n", stderr);
    }
    return ms / CameraRoot::kBatch;
}

// Resident memory a batch run adds at its peak, in MB.
double PeakMegabytes(IQA::IqaTaskManager& manager, const CameraRoot& root) {
    root.Restock();
    fs::current_path(root.root());
    for (int i = 0; i < CameraRoot::kBatch; ++i) {
        manager.RegisterTask(CameraRoot::Name(i));
    }
    std::ofstream("/proc/self/clear_refs") << "5";  // resets the high-water mark
    const size_t before = ProcStatusKb("VmRSS");
    manager.BeginProcess();
    return (static_cast<double>(ProcStatusKb("VmHWM")) - static_cast<double>(before)) / 1000;
}

// The reply of a low-similarity photo with a 1280 x 960 thumbnail: reduction, NV12, and the
// journaled dump; the photo is put back outside the timed part.
double ReplyMilliseconds(IQA::IqaTaskManager& manager, const CameraRoot& root, const Bytes& thumb) {
    fs::current_path(root.root());
    const std::string photo =
        std::string(IQA::kCameraFolder) + "/" + CameraRoot::Name(0) + IQA::kPhotoSuffix;
    Bytes original;
    iqa_tools::ReadWholeFile(photo, &original);
    const double ms =
        Milliseconds([&] { manager.IqaReply(CameraRoot::Name(0), thumb.data(), 1280, 960); });
    iqa_tools::WriteWholeFile(photo, original);
    return ms;
}

std::string Machine() {
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line, model = "unknown CPU";
    while (std::getline(cpuinfo, line)) {
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    }
    return model + ", " + std::to_string(sysconf(_SC_NPROCESSORS_ONLN)) + " cores";
}

// The bound's decode: the photo rows of the reduced rows that hold every byte the SSIM reads,
// and the columns the reduction reads.
void DecodeRegion(const Photo& photo, FloorSource source, const int* thumbnail,
                  iqa_bench::FloorBuffers* buffers) {
    const int k = photo.width / thumbnail[0];
    const size_t rowBytes = static_cast<size_t>(thumbnail[0]) * 3;
    const size_t reduced =
        (IQA::BlockSsimReach(thumbnail[0], thumbnail[1]) + rowBytes - 1) / rowBytes;
    const int rows = std::min(photo.height, k * static_cast<int>(reduced));
    iqa_bench::RegionDecode(iqa_bench::PhotoJpegPath(photo), source, k * thumbnail[0], rows,
                            buffers);
}

// Under callgrind started with --collect-atstart=no: the instructions of one batch run of five
// photos and of one bound decode, per thumbnail size, each collected alone and dumped under the
// label "batch|bound <thumbnail WxH> <photo>" for scripts/bench.sh to read. A first run of each
// goes uncounted. Instructions retired do not move with the machine's load.
void CountInstructions(const Photo& photo) {
    IQA::IqaTaskManager manager;
    iqa_bench::FloorBuffers buffers;
    for (const auto& t : kThumbnails) {
        const CameraRoot root(photo, t[0], t[1]);
        const std::string label =
            std::to_string(t[0]) + "x" + std::to_string(t[1]) + " " + iqa_bench::Name(photo);
        for (const bool counted : {false, true}) {
            const auto count = [&](const std::string& what, const std::function<void()>& work) {
                if (counted) {
                    CALLGRIND_ZERO_STATS;
                    CALLGRIND_TOGGLE_COLLECT;
                }
                work();
                if (counted) {
                    CALLGRIND_TOGGLE_COLLECT;
                    const std::string dump = what + " " + label;  // read when the dump is written
                    CALLGRIND_DUMP_STATS_AT(dump.c_str());
                }
            };
            count("batch", [&] { BatchRunPerPhoto(manager, root); });
            count("bound", [&] { DecodeRegion(photo, FloorSource::kMemory, t, &buffers); });
        }
    }
}

void Measure(const Photo& photo, int rounds) {
    IQA::IqaTaskManager manager;
    iqa_bench::FloorBuffers floorBuffers;
    const std::string jpeg = iqa_bench::PhotoJpegPath(photo);
    const auto decodeFloor = [&](FloorSource source) {
        return Milliseconds([&] { iqa_bench::FloorDecode(jpeg, source, &floorBuffers); });
    };
    const auto decodeRegion = [&](FloorSource source, const int* thumbnail) {
        return Milliseconds([&] { DecodeRegion(photo, source, thumbnail, &floorBuffers); });
    };
    // The floor through both readers; per thumbnail size the batch run, then its region decode
    // through both readers.
    std::vector<std::function<double()>> variants = {
        [&] { return decodeFloor(FloorSource::kMemory); },
        [&] { return decodeFloor(FloorSource::kStdio); }};
    std::vector<std::unique_ptr<CameraRoot>> roots;
    Bytes scratch;
    for (const auto& t : kThumbnails) {
        roots.push_back(std::make_unique<CameraRoot>(photo, t[0], t[1]));
        const CameraRoot& root = *roots.back();
        variants.push_back([&] { return BatchRunPerPhoto(manager, root); });
        variants.push_back([&, t] { return decodeRegion(FloorSource::kMemory, t); });
        variants.push_back([&, t] { return decodeRegion(FloorSource::kStdio, t); });
        variants.push_back([&, t] { return ThumbnailFilesPerPhoto(root, t, &scratch); });
    }
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
    const double memoryMs = Median(times[0]), stdioMs = Median(times[1]);
    const double floorMs = std::min(memoryMs, stdioMs);
    const std::string size = iqa_bench::Name(photo);
    for (size_t t = 0; t < roots.size(); ++t) {
        const double batch = Median(times[2 + kPerThumbnail * t]);
        printf("ratio %dx%d %s %.2f %.2f %.3f\n", kThumbnails[t][0], kThumbnails[t][1],
               size.c_str(), batch, floorMs, batch / floorMs);
    }
    for (size_t t = 0; t < roots.size(); ++t) {
        const double region = std::min(Median(times[3 + kPerThumbnail * t]),
                                       Median(times[4 + kPerThumbnail * t]));
        printf("bound %dx%d %s %.2f %.2f %.3f\n", kThumbnails[t][0], kThumbnails[t][1],
               size.c_str(), region, floorMs, region / floorMs);
        const double files = Median(times[5 + kPerThumbnail * t]);
        printf("files %dx%d %s %.2f %.2f %.3f\n", kThumbnails[t][0], kThumbnails[t][1],
               size.c_str(), files, region, files / region);
    }
    printf("floor %s from memory %.2f ms, through stdio %.2f ms: the faster is the floor\n",
           size.c_str(), memoryMs, stdioMs);
    for (size_t t = 0; t < roots.size(); ++t) {
        printf("peak %dx%d %s %.1f MB\n", kThumbnails[t][0], kThumbnails[t][1], size.c_str(),
               PeakMegabytes(manager, *roots[t]));
    }
    const Bytes thumb = iqa_bench::ThumbnailRgb(photo, 1280, 960);
    std::vector<double> replies;
    for (int round = -1; round < rounds; ++round) {
        const double ms = ReplyMilliseconds(manager, *roots[0], thumb);
        if (round >= 0) {
            replies.push_back(ms);
        }
    }
    printf("reply 1280x960 %s %.2f ms\n", size.c_str(), Median(replies));
    fflush(stdout);
}

// Only the batch runs of one photo and thumbnail (or only its floor decode), for a profiler:
//   valgrind --tool=callgrind --toggle-collect='IQA::IqaTaskManager::BeginProcess()'
//   iqa_ratio --profile P T N
void Profile(const Photo& photo, int variant, int runs) {
    IQA::IqaTaskManager manager;
    iqa_bench::FloorBuffers buffers;
    if (variant == 2) {
        for (int i = 0; i < runs; ++i) {
            printf("floor %.2f ms\n", Milliseconds([&] {
                       iqa_bench::FloorDecode(iqa_bench::PhotoJpegPath(photo), FloorSource::kMemory,
                                              &buffers);
                   }));
        }
        return;
    }
    const CameraRoot root(photo, kThumbnails[variant][0], kThumbnails[variant][1]);
    for (int i = 0; i < runs; ++i) {
        printf("%.2f ms per photo\n", BatchRunPerPhoto(manager, root));
    }
}

constexpr const char* kUsage =
    "usage: iqa_ratio [--rounds N]        (N >= 1, default 11)\n"
    "       iqa_ratio --instructions      (under callgrind: see scripts/bench.sh)\n"
    "       iqa_ratio --profile P V RUNS  (photo P 0 to 2; V 0: batch runs with a 1280x960\n"
    "                                      thumbnail, 1: with a 320x240 one, 2: floor decodes)\n";

int Run(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--instructions") == 0) {
        for (const Photo& photo : iqa_bench::Photos()) {
            CountInstructions(photo);
        }
        return 0;
    }
    if (argc == 5 && std::strcmp(argv[1], "--profile") == 0) {
        const int p = std::atoi(argv[2]), v = std::atoi(argv[3]);
        if (p < 0 || p >= static_cast<int>(iqa_bench::Photos().size()) || v < 0 || v > 2) {
            fputs(kUsage, stderr);
            return 2;
        }
        Profile(iqa_bench::Photos()[static_cast<size_t>(p)], v, std::max(1, std::atoi(argv[4])));
        return 0;
    }
    int rounds = 11;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--rounds") == 0 && i + 1 < argc) {
            rounds = std::max(1, std::atoi(argv[++i]));
        } else {
            fputs(kUsage, stderr);
            return 2;
        }
    }
    printf("machine %s\nrounds %d after a warm-up round; medians; work folder %s\n",
           Machine().c_str(), rounds, iqa_bench::WorkDir().c_str());
    for (const Photo& photo : iqa_bench::Photos()) {
        printf("photo %s (%s)\n", iqa_bench::Name(photo).c_str(), photo.what);
        Measure(photo, rounds);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(Quiet);
    const std::string start = fs::current_path().string();
    const int status = Run(argc, argv);
    fs::current_path(start);
    fs::remove_all(iqa_bench::WorkDir());
    return status;
}
