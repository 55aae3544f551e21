#!/usr/bin/env bash
# Installs the built project into a staging prefix, then builds and runs a host program against
# it twice: through find_package(iqa) and through pkg-config; where the Python module was built,
# the machine's Python imports it from the prefix, with no library path given. When the project
# is cross-built,
# IQA_TOOLCHAIN (its toolchain file), IQA_CXX (its compiler) and IQA_EMULATOR (the command that
# runs its programs) make the host program a program for the same target.
set -euo pipefail
build=$1 source=$2 work=$3
toolchain=${IQA_TOOLCHAIN:-} cxx=${IQA_CXX:-c++}
read -r -a emulator <<<"${IQA_EMULATOR:-}"
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$source" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} >/dev/null
cmake --build "$work/cmake" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib" "${emulator[@]}" "$work/cmake/consumer" 2>/dev/null
pcdir=$(dirname "$(find "$work/prefix" -name iqa.pc)")
flags=$(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs iqa)
# shellcheck disable=SC2086
"$cxx" -std=c++17 "$source/main.cpp" -o "$work/consumer-pc" $flags
LD_LIBRARY_PATH="$pcdir/.." "${emulator[@]}" "$work/consumer-pc" 2>/dev/null
module=$(find "$work/prefix" -name 'iqa.cpython-*.so')
if [ -n "$module" ]; then
  PYTHONPATH=$(dirname "$module") /usr/bin/python3 -c 'import iqa, numpy; print("python", iqa.reduce(numpy.zeros((4, 4, 3), numpy.uint8), 2, 2).shape)'
fi
echo "consumer ok"
