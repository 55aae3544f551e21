// The kernel, decoder and stage benchmarks, with the library's log silenced; the generated
// inputs are removed at the end, since they live in memory when the system has /dev/shm.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <filesystem>

#include "bench/BenchData.h"

namespace {

void Quiet(const struct __android_logger_data*, const char*) {}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(Quiet);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::filesystem::remove_all(iqa_bench::WorkDir());
    return 0;
}
