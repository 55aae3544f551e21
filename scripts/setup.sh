#!/usr/bin/env bash
# Installs, with apt-get, every package the build, tests, benchmarks and fuzzers need (Chromium
# renders the iqa tool's HTML report in a test; pybind11, numpy and pytest build and test the
# Python module). With
# --cross aarch64 it also installs what cross-building for the phones' 64-bit ARM CPU and
# running the tests under emulation needs: Debian's cross compiler, qemu-user and the arm64
# builds of the libraries (multiarch). Safe to run again: only what is missing is installed.
set -euo pipefail

usage() {
    echo "usage: scripts/setup.sh [--cross aarch64]" >&2
    exit 2
}

packages=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-dev clang-format
  libjpeg62-turbo-dev libsafec-dev android-liblog-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libpng-dev chromium
  python3-dev pybind11-dev python3-numpy python3-pytest
)
foreign=""
case "${1:-}" in
  "") [ $# -eq 0 ] || usage ;;
  --cross)
    [ $# -eq 2 ] && [ "$2" = aarch64 ] || usage
    foreign=arm64
    packages+=(crossbuild-essential-arm64 qemu-user)
    for library in libjpeg62-turbo-dev libsafec-dev android-liblog-dev libgtest-dev libgmock-dev \
      libpng-dev; do
      packages+=("$library:arm64")
    done
    ;;
  *) usage ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
if [ -n "$foreign" ] && ! dpkg --print-foreign-architectures | grep -qx "$foreign"; then
  "${sudo_cmd[@]}" dpkg --add-architecture "$foreign"
fi
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
