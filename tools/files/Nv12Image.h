// The previews the library stores in photos: NV12 images of a custom-buffer record, back to RGB.
#ifndef IQA_TOOLS_FILES_NV12_IMAGE_H
#define IQA_TOOLS_FILES_NV12_IMAGE_H

#include "tools/files/CameraFiles.h"

namespace iqa_tools {

// Converts the descriptor's width x height NV12 image (chroma rows of 2 * ceil(width / 2)
// bytes) with the inverse of the studio-range BT.601 conversion. False when the descriptor's
// size does not match that layout.
bool Nv12ToRgb(const unsigned char* nv12, const Descriptor& d, Bytes* rgb);

// The preview of the newest Iqa_com record the listing of `photo` holds, and the record's
// offset; false (with why) when there is none or it is not an NV12 image.
bool PreviewOf(IQA::ByteSource& photo, const TrailerListing& listing, Image* preview,
               uint64_t* offset, std::string* why);
// The same for a photo's bytes.
bool NewestPreview(const Bytes& photo, Image* preview, uint64_t* offset, std::string* why);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_NV12_IMAGE_H
