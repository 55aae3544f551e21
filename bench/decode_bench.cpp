// The decoders, and the floor: a bare libjpeg full-size decode of the same photo done the
// fastest way the library allows (many rows per call, straight into a ready destination).
#include <benchmark/benchmark.h>

#include <cstdio>

#include <jpeglib.h>

#include "BenchData.h"
#include "IqaProcessData.h"

namespace iqa_bench {
namespace {

constexpr unsigned long long kCapacity = 64000000;

void BM_FloorJpegDecode(benchmark::State& state) {
    Bytes destination(4000 * 3000 * 3, 1);  // already faulted in
    const std::string& path = PhotoJpegPath();
    for (auto _ : state) {
        FILE* file = fopen(path.c_str(), "rb");
        jpeg_decompress_struct cinfo;
        jpeg_error_mgr errors;
        cinfo.err = jpeg_std_error(&errors);
        jpeg_create_decompress(&cinfo);
        jpeg_stdio_src(&cinfo, file);
        jpeg_read_header(&cinfo, TRUE);
        cinfo.out_color_space = JCS_RGB;
        jpeg_start_decompress(&cinfo);
        const size_t stride = static_cast<size_t>(cinfo.output_width) * 3;
        JSAMPROW rows[32];
        while (cinfo.output_scanline < cinfo.output_height) {
            const JDIMENSION first = cinfo.output_scanline;
            for (JDIMENSION i = 0; i < 32; ++i) {
                rows[i] =
                    destination.data() + stride * std::min(first + i, cinfo.output_height - 1);
            }
            jpeg_read_scanlines(&cinfo, rows,
                                std::min<JDIMENSION>(32, cinfo.output_height - first));
        }
        jpeg_finish_decompress(&cinfo);
        jpeg_destroy_decompress(&cinfo);
        fclose(file);
        benchmark::DoNotOptimize(destination.data());
    }
}
BENCHMARK(BM_FloorJpegDecode)->Unit(benchmark::kMillisecond);

void BM_JpegDecoder(benchmark::State& state) {
    Bytes buffer(kCapacity, 0);
    IQA::IqaProcessData stage;
    int width = 0, height = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            stage.JpegDecoder(PhotoJpegPath().c_str(), buffer.data(), kCapacity, &width, &height));
    }
}
BENCHMARK(BM_JpegDecoder)->Unit(benchmark::kMillisecond);

void BM_ThumbnailDecoder(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const std::string path = ThumbnailPath(width, height);
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
