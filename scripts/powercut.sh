#!/usr/bin/env bash
# Power cuts on a real kernel and real file systems: Debian's kernel under qemu, f2fs and ext4 on
# a disk served by the harness's own NBD server, dumps and batch runs cut at seeded instants,
# either as a guest that dies at once (model a) or with the disk's unflushed writes lost as well
# (model b); after each cut the guest boots, recovers and checks every photo and thumbnail.
# usage: scripts/powercut.sh [--fs f2fs|ext4|all] [--model a|b|all] [--cuts N] [--seed S] [--jobs J]
#   (defaults: all, all, 200, 1, one per core)
# Never touches this machine's disks, mounts or boot files: everything lies in build-powercut.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --powercut
build=build-powercut
cmake -S . -B "$build/tree" -G Ninja -DCMAKE_BUILD_TYPE=Release -DIQA_BUILD_PYTHON=OFF \
  -DIQA_INSTALL=OFF >/dev/null
cmake --build "$build/tree" --target iqa_powercut_driver iqa_cli
exec python3 tests/powercut/harness.py "$@" --kernel-root "$build/kernel" \
  --driver "$build/tree/tests/iqa_powercut_driver" --iqa "$build/tree/tools/iqa" \
  --work "$build/work"
