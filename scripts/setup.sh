#!/usr/bin/env bash
# Installs, with apt-get, every package the build, tests, benchmarks and fuzzers need (Chromium
# renders the iqa tool's HTML report in a test; pybind11, numpy and pytest build and test the
# Python module). With
# --cross aarch64 it also installs what cross-building for the phones' 64-bit ARM CPU and
# running the tests under emulation needs: Debian's cross compiler, qemu-user and the arm64
# builds of the libraries (multiarch). With --powercut it also installs what the power-cut
# harness needs (qemu, busybox, the f2fs and ext4 tools, kmod) and fetches Debian's kernel
# package into build-powercut/kernel. Safe to run again: only what is missing is installed.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    echo "usage: scripts/setup.sh [--cross aarch64 | --powercut]" >&2
    exit 2
}

packages=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-dev clang-format
  libjpeg62-turbo-dev libsafec-dev android-liblog-dev
  libgtest-dev libgmock-dev libbenchmark-dev valgrind
  libcli11-dev nlohmann-json3-dev libpng-dev chromium
  python3-dev pybind11-dev python3-numpy python3-pytest
)
foreign=""
powercut=""
case "${1:-}" in
  "") [ $# -eq 0 ] || usage ;;
  --powercut)
    [ $# -eq 1 ] || usage
    powercut=yes
    packages+=(qemu-system-x86 busybox-static f2fs-tools e2fsprogs kmod)
    ;;
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

sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ -n "$foreign" ] && ! dpkg --print-foreign-architectures | grep -qx "$foreign"; then
    "${sudo_cmd[@]}" dpkg --add-architecture "$foreign"
  fi
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The power-cut harness boots Debian's own kernel under qemu: its package is fetched and unpacked
# into the build folder with its modules' dependency list, never installed on this machine.
if [ -n "$powercut" ]; then
  kernel=build-powercut/kernel
  if [ ! -d "$kernel/boot" ]; then
    image=$(apt-cache depends linux-image-amd64 | awk '/Depends: linux-image-/ {print $2; exit}')
    download=$(mktemp -d)
    chmod 777 "$download"  # apt's unprivileged downloader writes there
    if ! (cd "$download" && apt-get download -qq "$image" 2>/dev/null); then
      "${sudo_cmd[@]}" apt-get update -qq
      (cd "$download" && apt-get download -qq "$image")
    fi
    rm -rf "$kernel" && mkdir -p "$kernel"
    dpkg-deb -x "$download"/*.deb "$kernel"
    rm -rf "$download"
    /sbin/depmod -b "$kernel" "$(ls "$kernel/lib/modules")"
  fi
fi
