// Ways to make a thumbnail disagree with its photo on purpose, so that a low verdict and the
// preview it dumps can be watched: a sideways shift and a colour cast.
#ifndef IQA_TOOLS_FILES_THUMBNAIL_EDITS_H
#define IQA_TOOLS_FILES_THUMBNAIL_EDITS_H

#include "tools/files/CameraFiles.h"

namespace iqa_tools {

// Every row moved left by `shift` pixels; the last column repeats into the gap.
Bytes Shifted(const Bytes& rgb, int width, int height, int shift);

// A strong colour cast: red and blue raised, green lowered.
Bytes ColourCast(Bytes rgb);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_THUMBNAIL_EDITS_H
