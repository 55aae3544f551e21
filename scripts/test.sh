#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the whole test suite.
# Extra arguments go to CMake's configure step (for example -DIQA_WERROR=ON).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${IQA_BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
