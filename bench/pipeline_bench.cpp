// The preparation stage and the chain for a photo/thumbnail pair, and the reply of a
// low-similarity photo. Whole batch runs against the floor are measured by iqa_ratio.
#include <benchmark/benchmark.h>

#include <filesystem>

#include "IqaProcessData.h"
#include "IqaTaskManager.h"
#include "bench/BenchData.h"
#include "common/CameraLayout.h"
#include "process/PairRecord.h"
#include "tools/files/CameraFiles.h"

namespace iqa_bench {
namespace {

namespace fs = std::filesystem;
constexpr unsigned long long kCapacity = IQA::kPixelBufferSize;

IqaImageInfo Record(int thumbWidth, int thumbHeight, unsigned char* thumb, unsigned char* photo) {
    return IQA::PairRecord("photo", ThumbnailPath(Photos()[0], thumbWidth, thumbHeight),
                           PhotoJpegPath(Photos()[0]), {thumb, photo, kCapacity});
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

// Reduce, convert and dump (journal included) the 1280 x 960 thumbnail of a low-similarity
// photo; the photo is put back between iterations.
void BM_IqaReply(benchmark::State& state) {
    const CameraRoot camera(Photos()[0], 1280, 960);
    const std::string previous = fs::current_path().string();
    fs::current_path(camera.root());
    const Bytes thumb = ThumbnailRgb(Photos()[0], 1280, 960);
    const std::string photo =
        std::string(IQA::kCameraFolder) + "/" + CameraRoot::Name(0) + IQA::kPhotoSuffix;
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
