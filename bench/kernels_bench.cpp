// The image kernels at camera sizes.
#include <benchmark/benchmark.h>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "bench/BenchData.h"
#include "process/BoxReduce.h"

namespace iqa_bench {
namespace {

void BM_DownScale(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const Bytes& photo = PhotoDecoded(Photos()[0]);
    Bytes out(static_cast<size_t>(width) * height * 3);
    IQA::IqaProcessData stage;
    for (auto _ : state) {
        stage.DownScale(photo.data(), 4000, out.data(), width, height);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_DownScale)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

// The reduction as the decoder drives it: one block of k rows of the 3840 columns used, still in
// cache, reduced to one output row; range(0) is the block side k.
void BM_ReduceBlock(benchmark::State& state) {
    const int k = static_cast<int>(state.range(0));
    const Bytes strip(PhotoDecoded(Photos()[0]).begin(),
                      PhotoDecoded(Photos()[0]).begin() + 4000 * 3 * k);
    Bytes out(3840 / k * 3);
    for (auto _ : state) {
        IQA::BoxReduce(strip.data(), 4000, k, out.data(), 3840 / k, 1);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * 3840 * 3 * k);
}
BENCHMARK(BM_ReduceBlock)->Arg(3)->Arg(12);

void BM_CalculateRgbSsim(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const Bytes a = ThumbnailRgb(Photos()[0], width, height);
    Bytes b(a.size());
    IQA::IqaProcessData().DownScale(PhotoDecoded(Photos()[0]).data(), 4000, b.data(), width,
                                    height);
    IQA::IqaCompSim stage;
    for (auto _ : state) {
        benchmark::DoNotOptimize(stage.CalculateRgbSsim(a.data(), b.data(), width, height));
    }
}
BENCHMARK(BM_CalculateRgbSsim)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

void BM_ConvertRGBToNV12(benchmark::State& state) {
    const Bytes rgb = ThumbnailRgb(Photos()[0], 320, 240);
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
