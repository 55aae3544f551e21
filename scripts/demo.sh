#!/usr/bin/env bash
# Installs what is missing, builds the library and the iqa host program, writes the bundled
# sample camera root into the build folder, evaluates it like the camera host does, and writes
# the HTML report of the run: verdicts, the images compared, block SSIM maps and the previews
# stored in the low-similarity photos.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=${IQA_BUILD_DIR:-build-demo}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DIQA_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" --target iqa_cli
iqa="$build/tools/iqa"
sample="$build/sample"
rm -rf "$sample"
"$iqa" sample "$sample"
echo
"$iqa" run "$sample"
echo
report=$("$iqa" report "$sample" -o "$build/report.html")
echo "Report of the run, to open in a browser: $report"
