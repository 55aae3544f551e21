// NV12 back to RGB for viewing a dumped preview.
#ifndef IQA_TOOLS_NV12_IMAGE_H
#define IQA_TOOLS_NV12_IMAGE_H

#include "CameraFiles.h"

namespace iqa_tools {

// Converts the descriptor's width x height NV12 image (chroma rows of 2 * ceil(width / 2)
// bytes) with the inverse of the studio-range BT.601 conversion. False when the descriptor's
// size does not match that layout.
bool Nv12ToRgb(const unsigned char* nv12, const Descriptor& d, Bytes* rgb);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_NV12_IMAGE_H
