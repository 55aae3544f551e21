#!/usr/bin/env bash
# Builds an optimised tree with the benchmarks and runs them in one go; the summary at the end
# gives the batch run's cost per photo against the floor decode, with its breakdown.
# Extra arguments go to the benchmark program (for example --benchmark_filter=BatchRun).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${IQA_BUILD_DIR:-build-bench}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DIQA_BUILD_BENCHMARKS=ON \
  -DIQA_BUILD_TESTS=OFF -DIQA_BUILD_TOOLS=OFF >/dev/null
cmake --build "$build" --target iqa_bench
"$build/bench/iqa_bench" --benchmark_min_time=1 --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true "$@"
