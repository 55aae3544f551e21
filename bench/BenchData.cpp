// Benchmark inputs: generated photos, thumbnails reduced from them, and camera roots.
#include "bench/BenchData.h"

#include <jpeglib.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>

#include "common/CameraLayout.h"
#include "process/BoxReduce.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"

namespace iqa_bench {

namespace fs = std::filesystem;

namespace {

const std::string kCamera = IQA::kCameraFolder;
const std::string kCache = IQA::kCacheFolder;

std::string Label(const Photo& p) {
    return Name(p) + (p.fullChroma ? "_444" : "");
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
    static const std::vector<Photo> photos = {
        {4000, 3000, false, false, "camera 12 MP, 4:2:0"},
        {4032, 3024, true, false, "4:3 12 MP crop, 4:4:4"},
        {4000, 3000, false, true, "camera 12 MP, 4:2:0, progressive"}};
    return photos;
}

std::string Name(const Photo& photo) {
    return std::to_string(photo.width) + "x" + std::to_string(photo.height) +
           (photo.progressive ? "-progressive" : "");
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
        options.progressive = photo.progressive;
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
    fs::create_directories(root_ + "/" + kCache);
    Bytes jpeg;
    iqa_tools::ReadWholeFile(PhotoJpegPath(photo), &jpeg);
    const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", Bytes(64, 1)}}, Bytes(32, 2));
    jpeg.insert(jpeg.end(), trailer.begin(), trailer.end());
    for (int i = 0; i < kBatch; ++i) {
        iqa_tools::WriteWholeFile(root_ + "/" + kCamera + "/" + Name(i) + IQA::kPhotoSuffix, jpeg);
    }
}

std::string CameraRoot::Name(int i) {
    return "IMG_" + std::to_string(i);
}

void CameraRoot::Restock() const {
    for (int i = 0; i < kBatch; ++i) {
        fs::copy_file(thumbnail_, root_ + "/" + kCache + "/" + Name(i) + IQA::kThumbnailSuffix,
                      fs::copy_options::overwrite_existing);
    }
}

namespace {

// Opens the photo through `source` and decompresses it to RGB; `rows` reads the scanlines and
// says whether the decompression is to be finished (rather than abandoned).
template <typename ReadRows>
void Decompress(const std::string& path, FloorSource source, FloorBuffers* buffers, ReadRows rows) {
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
    if (rows(cinfo)) {
        jpeg_finish_decompress(&cinfo);
    }
    jpeg_destroy_decompress(&cinfo);
    if (file != nullptr) {
        fclose(file);
    }
}

}  // namespace

void FloorDecode(const std::string& path, FloorSource source, FloorBuffers* buffers) {
    Decompress(path, source, buffers, [&](jpeg_decompress_struct& cinfo) {
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
        return true;
    });
}

void RegionDecode(const std::string& path, FloorSource source, int width, int height,
                  FloorBuffers* buffers) {
    constexpr JDIMENSION kStripRows = 32;
    Decompress(path, source, buffers, [&](jpeg_decompress_struct& cinfo) {
        // One iMCU column more, as the library needs for identical pixels at the region's edge.
        JDIMENSION left = 0;
        JDIMENSION columns = static_cast<JDIMENSION>(width + cinfo.max_h_samp_factor * DCTSIZE);
        if (columns < cinfo.output_width) {
            jpeg_crop_scanline(&cinfo, &left, &columns);
        }
        const size_t pitch = (static_cast<size_t>(cinfo.output_width) * 3 + 15) / 16 * 16;
        Bytes* strip = &buffers->strip;
        strip->resize(pitch * kStripRows + 8, 1);
        const JDIMENSION last = std::min(cinfo.output_height, static_cast<JDIMENSION>(height));
        JSAMPROW rows[kStripRows];
        for (JDIMENSION i = 0; i < kStripRows; ++i) {
            rows[i] = strip->data() + 8 + pitch * i;  // off 16 bytes: written into the cache
        }
        while (cinfo.output_scanline < last) {
            jpeg_read_scanlines(&cinfo, rows, std::min(kStripRows, last - cinfo.output_scanline));
        }
        return false;
    });
}

}  // namespace iqa_bench
