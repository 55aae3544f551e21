#!/usr/bin/env bash
# Cross-builds the whole project for the phones' CPU and runs the whole test suite under
# user-mode emulation (qemu), the tools' and the installed package's tests included. Installs
# what is missing first, through scripts/setup.sh. Extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 1 ] || [ "$1" != aarch64 ]; then
  echo "usage: scripts/cross-test.sh aarch64 [cmake arguments]  (the only target: 64-bit ARM)" >&2
  exit 2
fi
shift
toolchain=$PWD/cmake/toolchains/aarch64-linux-gnu.cmake

build=${IQA_BUILD_DIR:-build-aarch64}
mkdir -p "$build"
if ! scripts/setup.sh --cross aarch64 >"$build/setup.log" 2>&1; then
  echo "cross-test: scripts/setup.sh --cross aarch64 failed (its output: $build/setup.log)" >&2
fi
# One line naming what to install, for the first piece that is still missing.
missing() {
  echo "cross-test: $1 is missing; install it with: scripts/setup.sh --cross aarch64" >&2
  exit 1
}
installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}
command -v aarch64-linux-gnu-g++ >/dev/null || missing "the cross compiler (crossbuild-essential-arm64)"
command -v qemu-aarch64 >/dev/null || missing "the emulator qemu-aarch64 (qemu-user)"
for package in libc6:arm64 libjpeg62-turbo-dev:arm64 libsafec-dev:arm64 android-liblog-dev:arm64 \
  libgtest-dev:arm64 libpng-dev:arm64; do
  installed "$package" || missing "$package"
done

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" "$@"
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
