// iqa import: turns ordinary JPEG photos into a camera root the library can evaluate. Each photo
// gets a camera trailer when it has none, and a raw thumbnail made by the library's own box
// reduction of the decoded photo, so that an untouched photo scores exactly 1.0; options make
// the thumbnail disagree on purpose.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "IqaProcessData.h"
#include "process/BoxReduce.h"
#include "tools/commands/Commands.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/ThumbnailEdits.h"

namespace iqa_tools {

namespace {

constexpr Size kLargestThumbnail = {1280, 960};
constexpr int kBlock = 8;  // the SSIM stage compares whole 8x8 blocks

struct ImportOptions {
    std::string dir;
    std::vector<std::string> photos;
    std::string thumb;  // WxH; empty for the default
    int shift = 0;
    bool tint = false;
    std::string other;
    bool force = false;
};

struct Picture {
    std::string path;
    Bytes file;
    Image image;
};

bool LoadPicture(const std::string& path, Picture* picture) {
    if (!ReadInput("import", path, &picture->file)) {
        return false;
    }
    Image& i = picture->image;
    if (!DecodeJpeg(picture->file, &i.rgb, &i.width, &i.height)) {
        fprintf(stderr, "iqa import: %s is not a JPEG that decodes to RGB\n", path.c_str());
        return false;
    }
    picture->path = path;
    return true;
}

// The smallest whole factor that brings the photo within the largest thumbnail and that the
// library finds again when it divides the photo's width by the thumbnail's.
Size DefaultThumbnail(const Image& photo) {
    for (int k = 1; k <= photo.width && k <= photo.height; ++k) {
        const Size thumb = {photo.width / k, photo.height / k};
        if (thumb.width <= kLargestThumbnail.width && thumb.height <= kLargestThumbnail.height &&
            photo.width / thumb.width == k) {
            return thumb;
        }
    }
    return {};
}

// Whether the library's box reduction, k = width / thumbnail width, stays inside the image.
bool Reducible(const Image& image, const Size& thumb) {
    return thumb.width >= kBlock && thumb.height >= kBlock && thumb.width <= image.width &&
           int64_t{image.width / thumb.width} * thumb.height <= image.height;
}

Bytes ReduceTo(const Image& image, const Size& thumb) {
    Bytes rgb(static_cast<size_t>(thumb.width) * static_cast<size_t>(thumb.height) * 3);
    IQA::IqaProcessData().DownScale(image.rgb.data(), image.width, rgb.data(), thumb.width,
                                    thumb.height);
    return rgb;
}

// Another frame of any shape made into the thumbnail: box-reduced, as the library reduces, by
// the largest whole factor that still covers the thumbnail, then its centre cut out. 0 when the
// frame is too small to cover it.
int CoverAndCrop(const Image& image, const Size& thumb, Bytes* rgb) {
    const int k = std::min(image.width / thumb.width, image.height / thumb.height);
    if (k < 1) {
        return 0;
    }
    const int width = image.width / k, height = image.height / k;
    Bytes covering(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    IQA::BoxReduceRows(image.rgb.data(), k * width, static_cast<size_t>(image.width) * 3,
                       image.height, covering.data(), width, height);
    const int x0 = (width - thumb.width) / 2, y0 = (height - thumb.height) / 2;
    rgb->clear();
    for (int y = y0; y < y0 + thumb.height; ++y) {
        const auto row = covering.begin() + (static_cast<long>(y) * width + x0) * 3;
        rgb->insert(rgb->end(), row, row + static_cast<long>(thumb.width) * 3);
    }
    return k;
}

// The photo file with a camera trailer: its own when whole, else one placeholder record behind
// its images (the primary and those it carries, as a phone lays them out) that keeps whatever
// followed them.
bool WithTrailer(const std::string& path, Bytes* photo) {
    TrailerListing listing;
    if (ReadTrailer(*photo, &listing)) {
        return true;
    }
    if (listing.status != IQA::LayoutStatus::kDamaged || listing.images.empty()) {
        fprintf(stderr, "iqa import: %s: %s\n", path.c_str(), listing.problem.c_str());
        return false;
    }
    Bytes after(photo->begin() + static_cast<long>(listing.imageEnd), photo->end());
    if (after.empty()) {
        const std::string note = "imported by iqa";
        after.assign(note.begin(), note.end());
    }
    photo->resize(listing.imageEnd);
    const Bytes trailer = Trailer({{"IMPORT", after}}, Bytes());
    photo->insert(photo->end(), trailer.begin(), trailer.end());
    return true;
}

std::string BaseName(const std::string& path) {
    return std::filesystem::path(path).stem().string();
}

void PrintWriteError(const std::string& path) {
    fprintf(stderr, "iqa import: cannot write %s: %s%s\n", path.c_str(), strerror(errno),
            errno == EEXIST ? " (--force replaces it)" : "");
}

bool Absent(const std::string& path) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0) {
        return true;
    }
    errno = EEXIST;
    PrintWriteError(path);
    return false;
}

bool Publish(const std::string& path, const Bytes& bytes, bool force) {
    if (PublishFile(path, bytes, force)) {
        return true;
    }
    PrintWriteError(path);
    return false;
}

// otherFactor: the factor another frame of its own shape was reduced by before its centre was
// cut out; 0 when it was reduced as the photo is.
std::string Describe(const ImportOptions& o, const Image& photo, const Size& thumb,
                     int otherFactor) {
    std::string text = std::to_string(photo.width) + "x" + std::to_string(photo.height) +
                       " photo, " + std::to_string(thumb.width) + "x" +
                       std::to_string(thumb.height) + " thumbnail (factor " +
                       std::to_string(photo.width / thumb.width) + ")";
    if (!o.other.empty()) {
        text += ", made from " + o.other;
    }
    if (otherFactor > 0) {
        text += " (reduced by " + std::to_string(otherFactor) + ", its centre cut out)";
    }
    if (o.shift > 0) {
        text += ", shifted " + std::to_string(o.shift) + " pixels";
    }
    return text + (o.tint ? ", tinted" : "");
}

// WIDTHxHEIGHT, each at least one block.
bool ParseSize(const std::string& text, Size* size) {
    char rest = 0;
    return sscanf(text.c_str(), "%dx%d%c", &size->width, &size->height, &rest) == 2 &&
           size->width >= kBlock && size->height >= kBlock;
}

bool ImportOne(const ImportOptions& o, const std::string& path, const Picture* other) {
    Picture photo;
    if (!LoadPicture(path, &photo) || !WithTrailer(path, &photo.file)) {
        return false;
    }
    Size thumb = DefaultThumbnail(photo.image);
    if (!o.thumb.empty()) {
        ParseSize(o.thumb, &thumb);
    }
    if (!Reducible(photo.image, thumb)) {
        fprintf(stderr, "iqa import: %s (%dx%d) cannot be box-reduced to a %dx%d thumbnail\n",
                path.c_str(), photo.image.width, photo.image.height, thumb.width, thumb.height);
        return false;
    }
    // Another frame of the photo's shape is reduced as the photo would be; one of any other
    // shape is reduced to cover the thumbnail and cropped to its centre.
    const bool ownShape = other == nullptr || (other->image.width == photo.image.width &&
                                               other->image.height == photo.image.height);
    Bytes rgb = ReduceTo(ownShape && other != nullptr ? other->image : photo.image, thumb);
    const int otherFactor = ownShape ? 0 : CoverAndCrop(other->image, thumb, &rgb);
    if (!ownShape && otherFactor == 0) {
        fprintf(stderr, "iqa import: %s (%dx%d) is too small to cover a %dx%d thumbnail\n",
                other->path.c_str(), other->image.width, other->image.height, thumb.width,
                thumb.height);
        return false;
    }
    rgb = o.shift > 0 ? Shifted(rgb, thumb.width, thumb.height, o.shift) : rgb;
    rgb = o.tint ? ColourCast(rgb) : rgb;
    const std::string name = BaseName(path);
    const std::string photoPath = o.dir + "/" + kCameraFolder + "/" + name + kPhotoSuffix;
    const std::string thumbPath = o.dir + "/" + kCacheFolder + "/" + name + kThumbnailSuffix;
    if (!o.force && !Absent(thumbPath)) {  // else the photo would be written without it
        return false;
    }
    if (!Publish(photoPath, photo.file, o.force) ||
        !Publish(thumbPath, ThumbnailFile(thumb.width, thumb.height, rgb), o.force)) {
        return false;
    }
    printf("%s: %s\n", name.c_str(), Describe(o, photo.image, thumb, otherFactor).c_str());
    return true;
}

int Import(const ImportOptions& o) {
    std::error_code error;
    std::filesystem::create_directories(o.dir + "/" + kCacheFolder, error);
    if (error) {
        fprintf(stderr, "iqa import: cannot create %s/%s: %s\n", o.dir.c_str(), kCacheFolder,
                error.message().c_str());
        return 1;
    }
    Picture other;
    if (!o.other.empty() && !LoadPicture(o.other, &other)) {
        return 1;
    }
    int status = 0;
    for (const std::string& photo : o.photos) {  // each one on its own: one failure stops none
        status |= ImportOne(o, photo, o.other.empty() ? nullptr : &other) ? 0 : 1;
    }
    return status;
}

CLI::Validator ThumbnailSize() {
    return CLI::Validator(
        [](std::string& text) {
            Size size;
            return ParseSize(text, &size) ? std::string()
                                          : "'" + text + "' is not WIDTHxHEIGHT of at least 8x8";
        },
        "WxH");
}

}  // namespace

void AddImportCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<ImportOptions>();
    CLI::App* command = app.add_subcommand(
        "import",
        "Turn ordinary JPEG photos into a camera root: copy each PHOTO to the camera folder "
        "under DIR as NAME.jpg (NAME: its file name without extension), appending a camera "
        "trailer with one placeholder record when it has none, and write its raw thumbnail to "
        "the cache folder, box-reduced from the decoded photo the way the library reduces, so "
        "that an untouched photo scores exactly 1.0 in iqa run. Never replaces a file unless "
        "--force is given.");
    command->add_option("DIR", options->dir, "the camera root to import into")->required();
    command->add_option("PHOTO", options->photos, "JPEG photos")->required();
    command
        ->add_option("--thumb", options->thumb,
                     "thumbnail size (default: the smallest whole reduction that fits 1280x960)")
        ->check(ThumbnailSize());
    command
        ->add_option("--shift", options->shift,
                     "make the thumbnail disagree: move it N thumbnail pixels to the left")
        ->check(CLI::Range(1, INT_MAX));
    command->add_flag("--tint", options->tint, "make the thumbnail disagree: a colour cast");
    command->add_option("--other", options->other,
                        "make the thumbnail disagree: reduce this other JPEG instead (one of "
                        "another shape to cover the thumbnail, then cropped to its centre)");
    command->add_flag("--force", options->force, "replace photos and thumbnails already there");
    command->callback([options, status] { *status = Import(*options); });
}

}  // namespace iqa_tools
