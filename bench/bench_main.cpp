// The kernel, decoder and stage benchmarks, with the library's log silenced.
#include <android/log.h>
#include <benchmark/benchmark.h>

namespace {

void Quiet(const struct __android_logger_data*, const char*) {}

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(Quiet);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
