// What a photo file holds, front to back: its images (the primary JPEG, then the gain map, depth
// map or further frames its multi-picture index names, then JPEG streams appended back to back
// without an index) and the trailer of records that must close exactly where the last of them
// ends. A record goes in front of the trailer's last record only when all of this checks out.
#ifndef IQA_UPLOAD_PHOTO_LAYOUT_H
#define IQA_UPLOAD_PHOTO_LAYOUT_H

#include <cstdint>
#include <vector>

#include "common/ByteSource.h"
#include "upload/PhotoTrailer.h"

namespace IQA {

struct PhotoImage {
    uint64_t offset;
    uint64_t length;
    bool indexed;        // named by the primary's multi-picture index (the primary when it has one)
    uint32_t attribute;  // the index's attribute for it; 0 when not indexed
};

enum class LayoutStatus {
    kWhole,          // the trailer closes where the images end
    kNotJpeg,        // no JPEG at the start of the file: nothing is known of its images
    kDamaged,        // the primary has no end, or the trailer does not close after the images
    kUnknownImages,  // the index names images the file does not hold where it says
};

struct PhotoLayout {
    std::vector<PhotoImage> images;  // in file order, the primary first
    TrailerChain chain;
    const char* problem = nullptr;  // why the layout is not whole; null when it is
};

// Finds the images and walks the trailer back to them. An image the index names must lie inside
// the file, after the primary's end, and start with an SOI marker; the index's size for the
// primary is not trusted (real files overstate it), the primary's own markers say where it ends.
LayoutStatus ReadPhotoLayout(ByteSource& source, PhotoLayout* layout);

}  // namespace IQA

#endif  // IQA_UPLOAD_PHOTO_LAYOUT_H
