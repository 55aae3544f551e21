// Runs the benchmarks and closes with the figures that matter per photo: the batch run's cost
// per photo against the floor decode, and where the rest of the time goes.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <algorithm>
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
            // The median of the repetitions when there are several, else the one run.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !median)) {
                continue;
            }
            const std::string name = run.run_name.str();  // all benchmarks report milliseconds
            ms_[name] = run.GetAdjustedRealTime();
            if (run.counters.count("peak_MB") != 0) {
                peak_[name] =
                    std::max(peak_[name], static_cast<double>(run.counters.at("peak_MB")));
            }
        }
    }

    void PrintSummary() const {
        const double floor = Get("BM_FloorJpegDecode");
        if (floor <= 0) {
            return;
        }
        printf("\nper photo, 4000x3000 JPEG (floor: bare libjpeg decode %.2f ms)\n", floor);
        printf("%-10s %9s %7s | %9s %9s %9s %9s %9s | %8s\n", "thumbnail", "batch/ph", "ratio",
               "decode", "thumb", "reduce", "ssim", "above", "peak MB");
        for (const char* size : {"1280/960", "320/240"}) {
            const std::string s = size;
            const double batch = Get("BM_BatchRun/" + s) / 5;
            const double decode = Get("BM_JpegDecoder"), thumb = Get("BM_ThumbnailDecoder/" + s);
            const double reduce = Get("BM_DownScale/" + s);
            const double ssim = Get("BM_CalculateRgbSsim/" + s);
            printf("%-10s %9.2f %6.2fx | %9.2f %9.2f %9.2f %9.2f %9.2f | %8.1f\n", size, batch,
                   batch / floor, decode, thumb, reduce, ssim, batch - floor,
                   Peak("BM_BatchRun/" + s));
        }
        printf(
            "batch/ph: a five-photo batch run (buffers, moves, clears included) / 5.\n"
            "Measured alone: decode = JpegDecoder, thumb = ThumbnailDecoder, reduce = DownScale "
            "(in the run\nthe reduction works on rows still in cache while the JPEG decodes), "
            "ssim = CalculateRgbSsim.\nabove = batch/ph - floor. peak MB: resident memory the "
            "run added at its peak.\nReply (dump) of a low-similarity photo, 1280x960 "
            "thumbnail: %.2f ms (not part of these runs).\n",
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
