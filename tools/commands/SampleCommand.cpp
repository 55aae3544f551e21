// iqa sample: a deterministic camera root with photos of camera sizes ending in a camera
// trailer, and raw thumbnails made from them, some matching and some not.
#include <cstdio>
#include <filesystem>
#include <memory>

#include "IqaProcessData.h"
#include "tools/commands/Commands.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/SceneGenerator.h"
#include "tools/files/ThumbnailEdits.h"

namespace iqa_tools {

namespace {

enum class Kind {
    kMatch,
    kOtherFrame,
    kShift,
    kColourCast,
    kNoThumbnail,
    kCorrupt,
    kPlain,
    kGainMap
};

struct SamplePhoto {
    const char* name;
    int width, height, thumbWidth, thumbHeight;
    Kind kind;
    uint32_t seed;
};

constexpr SamplePhoto kPhotos[] = {
    {"IMG_20261122_090101", 4000, 3000, 1280, 960, Kind::kMatch, 11},
    {"IMG_20261122_090215", 4000, 3000, 320, 240, Kind::kMatch, 12},
    {"IMG_20261122_090342", 2000, 1500, 500, 375, Kind::kOtherFrame, 13},
    {"IMG_20261122_090407", 2000, 1500, 500, 375, Kind::kShift, 14},
    {"IMG_20261122_090533", 1600, 1200, 400, 300, Kind::kColourCast, 15},
    {"IMG_20261122_090618", 1600, 1200, 400, 300, Kind::kNoThumbnail, 16},
    {"IMG_20261122_090744", 1600, 1200, 400, 300, Kind::kCorrupt, 17},
    {"IMG_20261122_090859", 1600, 1200, 400, 300, Kind::kPlain, 18},
    {"IMG_20261122_091002", 1024, 768, 256, 192, Kind::kMatch, 19},
    {"IMG_20261122_091118", 2000, 1500, 500, 375, Kind::kGainMap, 20},
};

// Two camera records and a block of other data, like a camera's own analysis trailer.
Bytes CameraTrailer(const SamplePhoto& p) {
    std::string info = std::string("model=QA-CAM-1;iso=100;exposure=1/120;name=") + p.name;
    const Bytes infoBytes(info.begin(), info.end());
    Bytes faces(96);
    for (size_t i = 0; i < faces.size(); ++i) {
        faces[i] = static_cast<unsigned char>(p.seed * 31 + i * 7);
    }
    return Trailer({{"CAMINFO", infoBytes}, {"FACEDET", faces}}, Bytes(64, 0x5C));
}

// A frame header declaring 7-bit samples, which no decoder accepts.
void CorruptFrameHeader(Bytes* jpeg) {
    for (size_t i = 2; i + 4 < jpeg->size(); ++i) {
        if ((*jpeg)[i] == 0xFF && (*jpeg)[i + 1] == 0xC0) {
            (*jpeg)[i + 4] = 7;
            return;
        }
    }
}

Bytes ThumbnailScene(const SamplePhoto& p, const Bytes& scene) {
    switch (p.kind) {
        case Kind::kOtherFrame:
        case Kind::kPlain:
            return RenderScene(p.width, p.height, p.seed + 1000);
        case Kind::kShift:
        case Kind::kGainMap:
            return Shifted(scene, p.width, p.height, p.width / 40);
        case Kind::kColourCast:
            return ColourCast(scene);
        default:
            return scene;
    }
}

// An HDR photo's shape: the primary, its multi-picture index, and a quarter-size greyscale gain
// map behind it.
Bytes WithGainMap(const Bytes& primary, const Bytes& scene, const SamplePhoto& p) {
    const int w = p.width / 4, h = p.height / 4;
    Bytes gain(static_cast<size_t>(w) * static_cast<size_t>(h));
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            const size_t at = (static_cast<size_t>(4 * y) * p.width + 4 * x) * 3 + 1;
            gain[static_cast<size_t>(y) * w + x] = static_cast<unsigned char>(scene[at] / 2 + 64);
        }
    }
    return MultiPictureJpeg(primary, {{0, EncodeJpeg(gain, w, h, 1, 85)}});
}

void WritePhoto(const SamplePhoto& p, const std::string& root) {
    const Bytes scene = RenderScene(p.width, p.height, p.seed);
    Bytes photo = EncodeJpeg(scene, p.width, p.height, 3, 92);
    if (p.kind == Kind::kCorrupt) {
        CorruptFrameHeader(&photo);
    } else if (p.kind == Kind::kGainMap) {
        photo = WithGainMap(photo, scene, p);
    }
    if (p.kind != Kind::kPlain) {
        const Bytes trailer = CameraTrailer(p);
        photo.insert(photo.end(), trailer.begin(), trailer.end());
    }
    const std::string camera = root + "/" + kCameraFolder + "/";
    WriteWholeFile(camera + p.name + kPhotoSuffix, photo);
    if (p.kind != Kind::kNoThumbnail) {
        Bytes thumb(static_cast<size_t>(p.thumbWidth) * p.thumbHeight * 3);
        IQA::IqaProcessData().DownScale(ThumbnailScene(p, scene).data(), p.width, thumb.data(),
                                        p.thumbWidth, p.thumbHeight);
        WriteWholeFile(root + "/" + kCacheFolder + "/" + p.name + kThumbnailSuffix,
                       ThumbnailFile(p.thumbWidth, p.thumbHeight, thumb));
    }
}

const char* Describe(Kind kind) {
    switch (kind) {
        case Kind::kMatch:
            return "thumbnail matches";
        case Kind::kOtherFrame:
            return "thumbnail of another frame";
        case Kind::kShift:
            return "thumbnail shifted";
        case Kind::kColourCast:
            return "thumbnail with a colour cast";
        case Kind::kNoThumbnail:
            return "no thumbnail";
        case Kind::kCorrupt:
            return "corrupt photo file";
        case Kind::kPlain:
            return "plain JPEG without trailer, thumbnail of another frame";
        case Kind::kGainMap:
            return "HDR photo: gain map behind the primary image, thumbnail shifted";
    }
    return "";
}

int Sample(const std::string& root) {
    std::error_code error;
    std::filesystem::create_directories(root + "/" + kCacheFolder, error);
    if (error) {
        fprintf(stderr, "iqa sample: cannot create %s/%s: %s\n", root.c_str(), kCacheFolder,
                error.message().c_str());
        return 1;
    }
    for (const SamplePhoto& p : kPhotos) {
        fprintf(stderr, "writing %s (%dx%d): %s\n", p.name, p.width, p.height, Describe(p.kind));
        WritePhoto(p, root);
    }
    printf("sample camera root written to %s\n", root.c_str());
    return 0;
}

}  // namespace

void AddSampleCommand(CLI::App& app, int* status) {
    auto root = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand(
        "sample",
        "Write a deterministic camera root: JPEG photos (one of 4000x3000) that end in a camera "
        "trailer, and their raw thumbnails in the cache folder. Some thumbnails match their "
        "photo, some show another frame, a shifted frame or a colour cast; one photo has no "
        "thumbnail, one photo file is corrupt, one is a plain JPEG without a trailer, and one "
        "is shaped as an HDR photo: a multi-picture index and a gain-map JPEG behind the "
        "primary image, then the trailer.");
    command->add_option("DIR", *root, "the camera root to write")->required();
    command->callback([root, status] { *status = Sample(*root); });
}

}  // namespace iqa_tools
