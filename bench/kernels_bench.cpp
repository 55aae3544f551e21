// The image kernels at camera sizes.
#include <benchmark/benchmark.h>

#include "BenchData.h"
#include "IqaCompSim.h"
#include "IqaProcessData.h"

namespace iqa_bench {
namespace {

void BM_DownScale(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const Bytes& photo = PhotoDecoded();
    Bytes out(static_cast<size_t>(width) * height * 3);
    IQA::IqaProcessData stage;
    for (auto _ : state) {
        stage.DownScale(photo.data(), 4000, out.data(), width, height);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_DownScale)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

void BM_CalculateRgbSsim(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const Bytes a = ThumbnailRgb(width, height);
    Bytes b(a.size());
    IQA::IqaProcessData().DownScale(PhotoDecoded().data(), 4000, b.data(), width, height);
    IQA::IqaCompSim stage;
    for (auto _ : state) {
        benchmark::DoNotOptimize(stage.CalculateRgbSsim(a.data(), b.data(), width, height));
    }
}
BENCHMARK(BM_CalculateRgbSsim)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

void BM_ConvertRGBToNV12(benchmark::State& state) {
    const Bytes rgb = ThumbnailRgb(320, 240);
    Bytes nv12(320 * 240 * 3 / 2);
    IQA::IqaProcessData stage;
    for (auto _ : state) {
        stage.ConvertRGBToNV12(rgb.data(), 320, 240, nv12.data());
        benchmark::DoNotOptimize(nv12.data());
    }
}
BENCHMARK(BM_ConvertRGBToNV12)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace iqa_bench
