// Images written in the format their file name asks for: PNG, JPEG or PPM.
#ifndef IQA_TOOLS_FILES_IMAGE_FILES_H
#define IQA_TOOLS_FILES_IMAGE_FILES_H

#include <CLI/CLI.hpp>

#include <string>

#include "tools/commands/PairEvaluation.h"

namespace iqa_tools {

enum class ImageFormat { kPng, kJpeg, kPpm };

// The format of an output name's extension (.png, .jpg or .jpeg, .ppm; any case); false for any
// other, which is a usage error.
bool ImageFormatOf(const std::string& path, ImageFormat* format);

// For the argument parser: an output image name must end in an extension ImageFormatOf knows.
CLI::Validator ImageNameCheck();

// Creates or replaces a regular file; false (errno set) when it cannot.
bool WriteImage(const std::string& path, const Image& image);

// The PNG file of the image, in memory.
bool EncodePng(const Image& image, Bytes* png);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_IMAGE_FILES_H
