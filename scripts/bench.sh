#!/usr/bin/env bash
# Builds an optimised tree and measures. First iqa_ratio: per benchmark photo, the floor (a bare
# libjpeg decode) and a batch run per photo for each thumbnail size, in alternating rounds in one
# process, medians printed as "ratio <thumbnail> <photo> <batch ms> <floor ms> <ratio>"; then the
# Google Benchmark suite of the parts. Extra arguments go to iqa_ratio (for example --rounds 21).
# iqa_scan_ratio then measures iqa scan over a phone's folder the same way, and callgrind counts
# the instructions of a batch run and of the bound: "instructions <thumbnail> <photo> <batch per
# photo> <bound> <ratio>".
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${IQA_BUILD_DIR:-build-bench}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DIQA_BUILD_BENCHMARKS=ON \
  -DIQA_BUILD_TESTS=OFF -DIQA_BUILD_TOOLS=ON -DIQA_BUILD_PYTHON=OFF >/dev/null
cmake --build "$build" --target iqa_ratio iqa_scan_ratio iqa_bench
"$build/bench/iqa_ratio" "$@"
echo
"$build/bench/iqa_scan_ratio"
echo
# Instructions retired, which a busy host cannot move: callgrind counts one batch run of five
# photos (per photo below) and one bound decode, each alone, per thumbnail size and photo.
counts=$(mktemp -d)
valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$counts/out.%p" \
  "$build/bench/iqa_ratio" --instructions >/dev/null 2>&1
awk 'FNR == 1 {kind = ""}
     /^desc: Trigger: Client Request: / {kind = $5; what = $6 " " $7}
     /^totals: / && kind != "" {n[kind " " what] = $2; whats[what] = 1}
     END {for (w in whats) printf "instructions %s %.0f %.0f %.3f\n", w, n["batch " w] / 5,
          n["bound " w], n["batch " w] / 5 / n["bound " w]}' "$counts"/out.* | sort -k3,3 -k2,2r
rm -rf "$counts"
echo
"$build/bench/iqa_bench" --benchmark_min_time=0.5 --benchmark_repetitions=3 \
  --benchmark_report_aggregates_only=true
