#!/usr/bin/env bash
# Builds the libFuzzer targets under ASan+UBSan, replays every corpus input (seeds and past
# crashes) and then fuzzes each target for SECONDS (default 60). New inputs go to a scratch
# corpus; a crash leaves its input in build-fuzz/crashes/ to be added to fuzz/corpus/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
seconds=${1:-60}
build=build-fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DIQA_BUILD_FUZZERS=ON -DIQA_SANITIZE=address,undefined -DIQA_BUILD_TESTS=OFF \
  -DIQA_BUILD_TOOLS=OFF -DIQA_INSTALL=OFF -DIQA_WERROR=ON
cmake --build "$build"
export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
mkdir -p "$build/crashes"
for target in thumbnail_fuzzer jpeg_fuzzer demand_fuzzer dump_fuzzer trailer_fuzzer \
  image_ops_fuzzer anomaly_fuzzer; do
  echo "== $target: replaying the corpus, then ${seconds}s of fuzzing"
  "$build/fuzz/$target" -runs=0 "fuzz/corpus/$target"
  scratch="$build/corpus/$target"
  mkdir -p "$scratch"
  status=0
  "$build/fuzz/$target" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 \
    -artifact_prefix="$build/crashes/$target-" -print_final_stats=1 \
    "$scratch" "fuzz/corpus/$target" 2>&1 |
    { grep -E "^(#[0-9]+ +DONE|==|SUMMARY|stat::number_of_executed_units|Done)" || true; } ||
    status=$?
  if [ "$status" -ne 0 ]; then
    echo "== $target failed (exit $status); the input is in $build/crashes/" >&2
    exit 1
  fi
done
