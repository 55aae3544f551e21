#!/usr/bin/env bash
# Installs what is missing, builds the library and the iqa host program, writes the bundled
# sample camera root into the build folder, evaluates it like the camera host does, and
# extracts the previews stored in the low-similarity photos.
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
previews="$sample/previews"
mkdir -p "$previews"
for photo in "$sample"/storage/emulated/0/DCIM/Camera/*.jpg; do
  name=$(basename "$photo" .jpg)
  if "$iqa" extract "$photo" "$previews/$name.jpg" >/dev/null 2>&1; then
    "$iqa" inspect "$photo" | grep -A1 'tag "Iqa_com"' | sed "s|^|$name: |"
  fi
done
echo
echo "Previews of the low-similarity photos (the thumbnails they disagreed with): $previews"
ls -1 "$previews"
