// PNG through libpng's simplified interface, JPEG through libjpeg, PPM by hand.
#include "tools/files/ImageFiles.h"

#include <png.h>

#include <algorithm>
#include <cctype>
#include <cerrno>

namespace iqa_tools {

namespace {

std::string LowerExtension(const std::string& path) {
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    std::string extension = path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

Bytes PpmOf(const Image& image) {
    const std::string header =
        "P6\n" + std::to_string(image.width) + " " + std::to_string(image.height) + "\n255\n";
    Bytes ppm(header.begin(), header.end());
    ppm.insert(ppm.end(), image.rgb.begin(), image.rgb.end());
    return ppm;
}

}  // namespace

bool ImageFormatOf(const std::string& path, ImageFormat* format) {
    const std::string extension = LowerExtension(path);
    if (extension == ".png") {
        *format = ImageFormat::kPng;
    } else if (extension == ".jpg" || extension == ".jpeg") {
        *format = ImageFormat::kJpeg;
    } else if (extension == ".ppm") {
        *format = ImageFormat::kPpm;
    } else {
        return false;
    }
    return true;
}

CLI::Validator ImageNameCheck() {
    return CLI::Validator(
        [](std::string& path) {
            ImageFormat format;
            return ImageFormatOf(path, &format)
                       ? std::string()
                       : "'" + path + "' does not end in .png, .jpg or .ppm";
        },
        "IMAGE");
}

bool EncodePng(const Image& image, Bytes* png) {
    png_image description = {};
    description.version = PNG_IMAGE_VERSION;
    description.width = static_cast<png_uint_32>(image.width);
    description.height = static_cast<png_uint_32>(image.height);
    description.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (!png_image_write_get_memory_size(description, size, 0, image.rgb.data(), 0, nullptr)) {
        return false;
    }
    png->resize(size);
    const bool written = png_image_write_to_memory(&description, png->data(), &size, 0,
                                                   image.rgb.data(), 0, nullptr) != 0;
    png->resize(size);
    return written;
}

bool WriteImage(const std::string& path, const Image& image) {
    ImageFormat format = ImageFormat::kPpm;
    if (!ImageFormatOf(path, &format)) {
        errno = EINVAL;
        return false;
    }
    Bytes bytes;
    switch (format) {
        case ImageFormat::kPng:
            if (!EncodePng(image, &bytes)) {
                errno = ENOMEM;
                return false;
            }
            break;
        case ImageFormat::kJpeg:
            bytes = EncodeJpeg(image.rgb, image.width, image.height, 3, 95);
            break;
        case ImageFormat::kPpm:
            bytes = PpmOf(image);
            break;
    }
    return WriteWholeFile(path, bytes);
}

}  // namespace iqa_tools
