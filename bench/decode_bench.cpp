// The decoders, and the floor: a bare libjpeg full-size decode of the same photo done the
// fastest way the library allows (many rows per call, straight into a ready destination).
#include <benchmark/benchmark.h>

#include "IqaProcessData.h"
#include "bench/BenchData.h"
#include "common/CameraLayout.h"

namespace iqa_bench {
namespace {

constexpr unsigned long long kCapacity = IQA::kPixelBufferSize;

void BM_FloorJpegDecode(benchmark::State& state) {
    FloorBuffers buffers;
    FloorDecode(PhotoJpegPath(Photos()[0]), FloorSource::kMemory, &buffers);  // faults them in
    for (auto _ : state) {
        FloorDecode(PhotoJpegPath(Photos()[0]), FloorSource::kMemory, &buffers);
        benchmark::DoNotOptimize(buffers.pixels.data());
    }
}
BENCHMARK(BM_FloorJpegDecode)->Unit(benchmark::kMillisecond);

void BM_JpegDecoder(benchmark::State& state) {
    Bytes buffer(kCapacity, 0);
    IQA::IqaProcessData stage;
    int width = 0, height = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(stage.JpegDecoder(PhotoJpegPath(Photos()[0]).c_str(),
                                                   buffer.data(), kCapacity, &width, &height));
    }
}
BENCHMARK(BM_JpegDecoder)->Unit(benchmark::kMillisecond);

void BM_ThumbnailDecoder(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const std::string path = ThumbnailPath(Photos()[0], width, height);
    Bytes buffer(kCapacity, 0);
    IQA::IqaProcessData stage;
    int w = 0, h = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            stage.ThumbnailDecoder(path.c_str(), buffer.data(), kCapacity, &w, &h));
    }
}
BENCHMARK(BM_ThumbnailDecoder)->Args({1280, 960})->Args({320, 240})->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace iqa_bench
