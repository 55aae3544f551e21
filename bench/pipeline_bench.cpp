// The preparation stage and the chain for a photo/thumbnail pair, the reply of a low-similarity
// photo, and whole batch runs of five photos as the worker executes them.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "BenchData.h"
#include "CameraFiles.h"
#include "IqaProcessData.h"
#include "IqaTaskManager.h"

namespace iqa_bench {
namespace {

namespace fs = std::filesystem;
constexpr unsigned long long kCapacity = 64000000;
constexpr int kBatch = 5;
const std::string kCamera = "storage/emulated/0/DCIM/Camera";

IqaImageInfo Record(int thumbWidth, int thumbHeight, unsigned char* thumb, unsigned char* photo) {
    IqaImageInfo info{};
    info.jpegName = "photo";
    info.thumbPath = ThumbnailPath(thumbWidth, thumbHeight);
    info.jpegPath = PhotoJpegPath();
    info.thumbBuffer = thumb;
    info.jpegBuffer = photo;
    info.bufferSize = kCapacity;
    info.thumbDecoderType = IQA::DECODER_THUMBNAIL;
    info.jpegDecoderType = IQA::DECODER_JPEG;
    return info;
}

void BM_ProcessImage(benchmark::State& state) {
    Bytes thumb(kCapacity), photo(kCapacity);
    IQA::IqaProcessData stage;
    for (auto _ : state) {
        IqaImageInfo info = Record(static_cast<int>(state.range(0)),
                                   static_cast<int>(state.range(1)), thumb.data(), photo.data());
        benchmark::DoNotOptimize(stage.ProcessImage(info));
    }
}
BENCHMARK(BM_ProcessImage)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

void BM_GetSsim(benchmark::State& state) {
    Bytes thumb(kCapacity), photo(kCapacity);
    IQA::IqaTaskManager manager;
    for (auto _ : state) {
        IqaImageInfo info = Record(static_cast<int>(state.range(0)),
                                   static_cast<int>(state.range(1)), thumb.data(), photo.data());
        benchmark::DoNotOptimize(manager.GetSsim(info).ssim);
    }
}
BENCHMARK(BM_GetSsim)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

// A camera root with five copies of the photo (with a trailer) and their thumbnails; the
// thumbnails are put back into the cache before every run, since a run consumes them.
class CameraRoot {
  public:
    CameraRoot(int thumbWidth, int thumbHeight)
        : root_(WorkDir() + "/root_" + std::to_string(thumbWidth)) {
        fs::create_directories(root_ + "/" + kCamera + "/cache");
        Bytes photo;
        iqa_tools::ReadWholeFile(PhotoJpegPath(), &photo);
        const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", Bytes(64, 1)}}, Bytes(32, 2));
        photo.insert(photo.end(), trailer.begin(), trailer.end());
        for (int i = 0; i < kBatch; ++i) {
            iqa_tools::WriteWholeFile(root_ + "/" + kCamera + "/" + Name(i) + ".jpg", photo);
        }
        thumbnail_ = ThumbnailPath(thumbWidth, thumbHeight);
    }
    static std::string Name(int i) { return "IMG_" + std::to_string(i); }
    void Restock() const {
        for (int i = 0; i < kBatch; ++i) {
            fs::copy_file(thumbnail_, root_ + "/" + kCamera + "/cache/" + Name(i) + ".thumbnail",
                          fs::copy_options::overwrite_existing);
        }
    }
    const std::string& root() const { return root_; }

  private:
    std::string root_;
    std::string thumbnail_;
};

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

// Peak resident memory of the run itself: the kernel's high-water mark is reset first.
void ResetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

void BM_BatchRun(benchmark::State& state) {
    const CameraRoot camera(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    const std::string previous = fs::current_path().string();
    fs::current_path(camera.root());
    IQA::IqaTaskManager manager;
    double peakMb = 0;
    for (auto _ : state) {
        state.PauseTiming();
        camera.Restock();
        for (int i = 0; i < kBatch; ++i) {
            manager.RegisterTask(CameraRoot::Name(i));
        }
        ResetPeak();
        const size_t before = ProcStatusKb("VmRSS");
        state.ResumeTiming();
        manager.BeginProcess();
        state.PauseTiming();
        peakMb = std::max(peakMb, (ProcStatusKb("VmHWM") - static_cast<double>(before)) / 1024);
        state.ResumeTiming();
    }
    fs::current_path(previous);
    state.counters["photos"] = kBatch;
    state.counters["peak_MB"] = peakMb;
}
BENCHMARK(BM_BatchRun)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

void BM_IqaReply(benchmark::State& state) {
    const CameraRoot camera(1280, 960);
    const std::string previous = fs::current_path().string();
    fs::current_path(camera.root());
    const Bytes thumb = ThumbnailRgb(1280, 960);
    const std::string photo = kCamera + "/" + CameraRoot::Name(0) + ".jpg";
    Bytes original;
    iqa_tools::ReadWholeFile(photo, &original);
    IQA::IqaTaskManager manager;
    for (auto _ : state) {
        manager.IqaReply(CameraRoot::Name(0), thumb.data(), 1280, 960);
        state.PauseTiming();
        iqa_tools::WriteWholeFile(photo, original);
        state.ResumeTiming();
    }
    fs::current_path(previous);
}
BENCHMARK(BM_IqaReply)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace iqa_bench
