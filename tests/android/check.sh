#!/usr/bin/env bash
# Configures the project as an Android NDK build would: with a stand-in for the NDK's toolchain
# file, an NDK sysroot holding only liblog, and the host project's libjpeg and safec builds per
# ABI. The arm64-v8a configure must take exactly those libraries; a 32-bit ABI must be refused
# with the one message that says why.
set -euo pipefail
source=$1 work=$2
rm -rf "$work"
deps="$work/deps/arm64-v8a"
mkdir -p "$work/sysroot/usr/lib" "$deps/lib" "$deps/include/safeclib"
touch "$work/sysroot/usr/lib/liblog.so" "$deps/lib/libjpeg.so" "$deps/lib/libsafec.so" \
  "$deps/include/jpeglib.h" "$deps/include/safeclib/safe_mem_lib.h"

configure() {  # ABI
  cmake -S "$source" -B "$work/build-$1" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$source/tests/android/toolchain.cmake" \
    -DIQA_STUB_SYSROOT="$work/sysroot" -DANDROID_ABI="$1" \
    -DIQA_ANDROID_DEPENDENCIES="$work/deps" -DIQA_BUILD_TESTS=OFF -DIQA_BUILD_TOOLS=OFF \
    -DIQA_INSTALL=OFF >"$work/$1.log" 2>&1
}
expect() {  # cache entry
  grep -qx "$1" "$work/build-arm64-v8a/CMakeCache.txt" || { echo "not in the cache: $1"; exit 1; }
}

configure arm64-v8a || { cat "$work/arm64-v8a.log"; exit 1; }
expect "IQA_ANDROID_LOG_LIBRARY:FILEPATH=$work/sysroot/usr/lib/liblog.so"
expect "IQA_SAFEC_LIBRARY:FILEPATH=$deps/lib/libsafec.so"
expect "JPEG_LIBRARY_RELEASE:FILEPATH=$deps/lib/libjpeg.so"
if configure armeabi-v7a; then
  echo "a 32-bit ABI was not refused"
  exit 1
fi
grep -q "32-bit targets are not supported" "$work/armeabi-v7a.log"
echo "android configure ok"
