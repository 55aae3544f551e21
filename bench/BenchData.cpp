// Benchmark inputs: generated photos, thumbnails reduced from them, and camera roots.
#include "BenchData.h"

#include <jpeglib.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "BoxReduce.h"
#include "CameraFiles.h"
#include "SceneGenerator.h"

namespace iqa_bench {

namespace fs = std::filesystem;

namespace {

const std::string kCamera = "storage/emulated/0/DCIM/Camera";

std::string Label(const Photo& p) {
    return std::to_string(p.width) + "x" + std::to_string(p.height) + (p.fullChroma ? "_444" : "");
}

template <typename T, typename Make>
const T& Cached(const Photo& photo, Make make) {
    static std::map<std::string, T> cache;
    const std::string key = Label(photo);
    auto found = cache.find(key);
    if (found == cache.end()) {
        found = cache.emplace(key, make()).first;
    }
    return found->second;
}

}  // namespace

const std::vector<Photo>& Photos() {
    static const std::vector<Photo> photos = {{4000, 3000, false, "camera 12 MP, 4:2:0"},
                                              {4032, 3024, true, "4:3 12 MP crop, 4:4:4"}};
    return photos;
}

const std::string& WorkDir() {
    static const std::string dir = [] {
        const std::string parent =
            access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path().string();
        std::string pattern = parent + "/iqa_bench_XXXXXX";
        return std::string(mkdtemp(pattern.data()));
    }();
    return dir;
}

const Bytes& PhotoRgb(const Photo& photo) {
    return Cached<Bytes>(photo,
                         [&] { return iqa_tools::RenderScene(photo.width, photo.height, 7); });
}

const std::string& PhotoJpegPath(const Photo& photo) {
    return Cached<std::string>(photo, [&] {
        const std::string path = WorkDir() + "/photo_" + Label(photo) + ".jpg";
        iqa_tools::JpegOptions options;
        options.fullChroma = photo.fullChroma;
        iqa_tools::WriteWholeFile(path, iqa_tools::EncodeJpeg(PhotoRgb(photo), photo.width,
                                                              photo.height, 3, 92, options));
        return path;
    });
}

const Bytes& PhotoDecoded(const Photo& photo) {
    return Cached<Bytes>(photo, [&] {
        Bytes jpeg, rgb;
        int w = 0, h = 0;
        iqa_tools::ReadWholeFile(PhotoJpegPath(photo), &jpeg);
        iqa_tools::DecodeJpeg(jpeg, &rgb, &w, &h);
        return rgb;
    });
}

Bytes ThumbnailRgb(const Photo& photo, int width, int height) {
    Bytes rgb(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    IQA::BoxReduce(PhotoDecoded(photo).data(), photo.width, photo.height, rgb.data(), width,
                   height);
    return rgb;
}

std::string ThumbnailPath(const Photo& photo, int width, int height) {
    const std::string path = WorkDir() + "/thumb_" + Label(photo) + "_" + std::to_string(width) +
                             "x" + std::to_string(height);
    if (!fs::exists(path)) {
        iqa_tools::WriteWholeFile(
            path, iqa_tools::ThumbnailFile(width, height, ThumbnailRgb(photo, width, height)));
    }
    return path;
}

CameraRoot::CameraRoot(const Photo& photo, int thumbWidth, int thumbHeight)
    : root_(WorkDir() + "/root_" + Label(photo) + "_" + std::to_string(thumbWidth)),
      thumbnail_(ThumbnailPath(photo, thumbWidth, thumbHeight)) {
    fs::create_directories(root_ + "/" + kCamera + "/cache");
    Bytes jpeg;
    iqa_tools::ReadWholeFile(PhotoJpegPath(photo), &jpeg);
    const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", Bytes(64, 1)}}, Bytes(32, 2));
    jpeg.insert(jpeg.end(), trailer.begin(), trailer.end());
    for (int i = 0; i < kBatch; ++i) {
        iqa_tools::WriteWholeFile(root_ + "/" + kCamera + "/" + Name(i) + ".jpg", jpeg);
    }
}

std::string CameraRoot::Name(int i) {
    return "IMG_" + std::to_string(i);
}

void CameraRoot::Restock() const {
    for (int i = 0; i < kBatch; ++i) {
        fs::copy_file(thumbnail_, root_ + "/" + kCamera + "/cache/" + Name(i) + ".thumbnail",
                      fs::copy_options::overwrite_existing);
    }
}

void FloorDecode(const std::string& path, FloorSource source, FloorBuffers* buffers) {
    FILE* file = nullptr;
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr errors;
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&cinfo);
    if (source == FloorSource::kStdio) {
        file = fopen(path.c_str(), "rb");
        jpeg_stdio_src(&cinfo, file);
    } else {
        iqa_tools::ReadWholeFile(path, &buffers->file);
        jpeg_mem_src(&cinfo, buffers->file.data(), buffers->file.size());
    }
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    const size_t stride = static_cast<size_t>(cinfo.output_width) * 3;
    Bytes* destination = &buffers->pixels;
    destination->resize(stride * cinfo.output_height, 1);
    JSAMPROW rows[32];
    while (cinfo.output_scanline < cinfo.output_height) {
        const JDIMENSION first = cinfo.output_scanline;
        const JDIMENSION count = std::min<JDIMENSION>(32, cinfo.output_height - first);
        for (JDIMENSION i = 0; i < count; ++i) {
            rows[i] = destination->data() + stride * (first + i);
        }
        jpeg_read_scanlines(&cinfo, rows, count);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    if (file != nullptr) {
        fclose(file);
    }
}

}  // namespace iqa_bench
