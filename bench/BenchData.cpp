// Benchmark inputs: one natural-looking 4000 x 3000 photo and thumbnails made from it.
#include "BenchData.h"

#include <stdlib.h>

#include <filesystem>
#include <map>

#include "CameraFiles.h"
#include "SceneGenerator.h"

namespace iqa_bench {

namespace {
constexpr int kWidth = 4000, kHeight = 3000;
}

const std::string& WorkDir() {
    static const std::string dir = [] {
        std::string pattern = std::filesystem::temp_directory_path().string() + "/iqa_bench_XXXXXX";
        return std::string(mkdtemp(pattern.data()));
    }();
    return dir;
}

const Bytes& PhotoRgb() {
    static const Bytes rgb = iqa_tools::RenderScene(kWidth, kHeight, 7);
    return rgb;
}

const std::string& PhotoJpegPath() {
    static const std::string path = [] {
        const std::string p = WorkDir() + "/photo.jpg";
        iqa_tools::WriteWholeFile(p, iqa_tools::EncodeJpeg(PhotoRgb(), kWidth, kHeight, 3, 92));
        return p;
    }();
    return path;
}

const Bytes& PhotoDecoded() {
    static const Bytes decoded = [] {
        Bytes jpeg, rgb;
        int w = 0, h = 0;
        iqa_tools::ReadWholeFile(PhotoJpegPath(), &jpeg);
        iqa_tools::DecodeJpeg(jpeg, &rgb, &w, &h);
        return rgb;
    }();
    return decoded;
}

Bytes ThumbnailRgb(int width, int height) {
    return iqa_tools::BoxReduceRgb(PhotoRgb(), kWidth, width, height);
}

std::string ThumbnailPath(int width, int height) {
    static std::map<std::pair<int, int>, std::string> paths;
    auto& path = paths[{width, height}];
    if (path.empty()) {
        path = WorkDir() + "/thumb_" + std::to_string(width) + "x" + std::to_string(height);
        iqa_tools::WriteWholeFile(
            path, iqa_tools::ThumbnailFile(width, height, ThumbnailRgb(width, height)));
    }
    return path;
}

}  // namespace iqa_bench
