#!/usr/bin/env bash
# Builds with sanitizers and runs the tests under them: the whole suite under AddressSanitizer
# and UndefinedBehaviorSanitizer ("address"), the concurrency tests under ThreadSanitizer
# ("thread"). With no argument, both. Any report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
modes=("$@")
[ ${#modes[@]} -gt 0 ] || modes=(address thread)
for mode in "${modes[@]}"; do
  case "$mode" in
    address)
      build=build-asan
      sanitizers="address,undefined"
      filter=()
      export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:abort_on_error=0:strict_string_checks=1"
      export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
      ;;
    thread)
      build=build-tsan
      sanitizers="thread"
      filter=(-L concurrency)
      export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
      ;;
    *) echo "unknown sanitizer mode: $mode (address or thread)" >&2; exit 2 ;;
  esac
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DIQA_SANITIZE="$sanitizers" -DIQA_WERROR=ON -DIQA_INSTALL=OFF
  cmake --build "$build"
  ctest --test-dir "$build" --output-on-failure -j"$(nproc)" "${filter[@]}"
done
