// Generated inputs of camera sizes for the benchmarks, made once per process.
#ifndef IQA_BENCH_DATA_H
#define IQA_BENCH_DATA_H

#include <string>
#include <vector>

namespace iqa_bench {

using Bytes = std::vector<unsigned char>;

// A folder of the benchmark's own under the temporary folder, with the camera layout inside.
const std::string& WorkDir();

// The 4000 x 3000 natural-looking scene, its JPEG file and decoded pixels.
const Bytes& PhotoRgb();
const std::string& PhotoJpegPath();
const Bytes& PhotoDecoded();

// A raw thumbnail file of the scene at width x height, reduced the way the camera does.
std::string ThumbnailPath(int width, int height);
Bytes ThumbnailRgb(int width, int height);

}  // namespace iqa_bench

#endif  // IQA_BENCH_DATA_H
