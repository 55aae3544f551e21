// Runs the benchmarks and closes with the figures that matter per photo: the batch run's cost
// per photo against the floor decode, and where the rest of the time goes.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>

namespace {

void Quiet(const struct __android_logger_data*, const char*) {}

class SummaryReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                // All benchmarks report milliseconds.
                ms_[run.benchmark_name()] = run.GetAdjustedRealTime();
                if (run.counters.count("peak_MB") != 0) {
                    peak_[run.benchmark_name()] = run.counters.at("peak_MB");
                }
            }
        }
    }

    void PrintSummary() const {
        const double floor = Get("BM_FloorJpegDecode");
        if (floor <= 0) {
            return;
        }
        printf("\nper photo, 4000x3000 JPEG (floor: bare libjpeg decode %.2f ms)\n", floor);
        printf("%-10s %9s %9s %9s %9s %9s %9s %8s %8s\n", "thumbnail", "batch/ph", "ratio",
               "decode", "thumb", "reduce", "ssim", "rest", "peak MB");
        for (const char* size : {"1280/960", "320/240"}) {
            const std::string s = size;
            const double batch = Get("BM_BatchRun/" + s) / 5;
            const double decode = Get("BM_JpegDecoder"), thumb = Get("BM_ThumbnailDecoder/" + s);
            const double reduce = Get("BM_DownScale/" + s);
            const double ssim = Get("BM_CalculateRgbSsim/" + s);
            printf("%-10s %9.2f %8.2fx %9.2f %9.2f %9.2f %9.2f %8.2f %8.1f\n", size, batch,
                   batch / floor, decode, thumb, reduce, ssim,
                   batch - decode - thumb - reduce - ssim, Peak("BM_BatchRun/" + s));
        }
        printf(
            "rest: buffer clears and copies, thumbnail moves and deletion, page faults of the "
            "run's buffers.\nreply (dump) of a low-similarity photo, 1280x960 thumbnail: "
            "%.2f ms\n",
            Get("BM_IqaReply"));
    }

  private:
    double Get(const std::string& name) const {
        const auto it = ms_.find(name);
        return it == ms_.end() ? 0.0 : it->second;
    }
    double Peak(const std::string& name) const {
        const auto it = peak_.find(name);
        return it == peak_.end() ? 0.0 : it->second;
    }
    std::map<std::string, double> ms_;
    std::map<std::string, double> peak_;
};

}  // namespace

int main(int argc, char** argv) {
    __android_log_set_logger(Quiet);
    benchmark::Initialize(&argc, argv);
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary();
    benchmark::Shutdown();
    return 0;
}
