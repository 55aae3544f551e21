// The images of a photo, from its primary's markers and multi-picture index, and the trailer walk
// that must close behind them.
#include "upload/PhotoLayout.h"

#include <algorithm>

#include "common/JpegStream.h"
#include "common/MultiPicture.h"

namespace IQA {

namespace {

bool StartsJpeg(ByteSource& source, uint64_t at) {
    unsigned char soi[2] = {};
    return source.Read(at, soi, sizeof(soi)) && soi[0] == 0xFF && soi[1] == 0xD8;
}

// The images the primary's index names behind the primary, checked against the file.
const char* AddIndexedImages(ByteSource& source, const JpegStreamEnd& primary,
                             std::vector<PhotoImage>* images) {
    std::vector<PictureEntry> entries;
    if (const char* problem =
            ReadPictureIndex(source, primary.indexAt, primary.indexLength, &entries)) {
        return problem;
    }
    if (entries.front().offset != 0) {
        return "the multi-picture index does not start with the primary image";
    }
    images->front().indexed = true;
    images->front().attribute = entries.front().attribute;
    for (auto entry = entries.begin() + 1; entry != entries.end(); ++entry) {
        if (entry->offset < primary.end) {
            return "an image the index names does not lie behind the primary image";
        }
        if (entry->size > source.Size() || entry->offset > source.Size() - entry->size) {
            return "an image the index names lies outside the file";
        }
        if (!StartsJpeg(source, entry->offset)) {
            return "an image the index names does not start a JPEG stream";
        }
        images->push_back({entry->offset, entry->size, true, entry->attribute});
    }
    std::sort(images->begin() + 1, images->end(),
              [](const PhotoImage& a, const PhotoImage& b) { return a.offset < b.offset; });
    return nullptr;
}

// Where the trailer may begin: behind the indexed images, or behind each JPEG stream that
// follows them back to back. A record whose payload happens to be a JPEG stream is taken for one
// here; the trailer walk, which stops at the first of these ends it meets, sorts that out.
std::vector<uint64_t> AddAppendedImages(ByteSource& source, std::vector<PhotoImage>* images) {
    uint64_t end = 0;
    for (const PhotoImage& image : *images) {
        end = std::max(end, image.offset + image.length);
    }
    std::vector<uint64_t> ends = {end};
    JpegStreamEnd stream;
    while (FindJpegEnd(source, end, &stream) == JpegEnd::kFound) {
        images->push_back({end, stream.end - end, false, 0});
        end = stream.end;
        ends.push_back(end);
    }
    return ends;
}

LayoutStatus Fail(PhotoLayout* layout, LayoutStatus status, const char* problem) {
    layout->problem = problem;
    return status;
}

}  // namespace

LayoutStatus ReadPhotoLayout(ByteSource& source, PhotoLayout* layout) {
    *layout = PhotoLayout();
    JpegStreamEnd primary;
    switch (FindJpegEnd(source, 0, &primary)) {
        case JpegEnd::kNotJpeg:
            return Fail(layout, LayoutStatus::kNotJpeg, "no JPEG image at the start of the file");
        case JpegEnd::kNoEnd:
            return Fail(layout, LayoutStatus::kDamaged, "the JPEG image has no end");
        case JpegEnd::kFound:
            break;
    }
    layout->images.push_back({0, primary.end, false, 0});
    if (primary.indexAt != 0) {
        if (const char* problem = AddIndexedImages(source, primary, &layout->images)) {
            return Fail(layout, LayoutStatus::kUnknownImages, problem);
        }
    }
    const std::vector<uint64_t> ends = AddAppendedImages(source, &layout->images);
    if (!WalkTrailer(source, ends, &layout->chain)) {
        return Fail(layout, LayoutStatus::kDamaged, layout->chain.problem);
    }
    // Streams behind the chain's close were its records' payloads.
    const uint64_t close = layout->chain.imageEnd;
    layout->images.erase(std::remove_if(layout->images.begin() + 1, layout->images.end(),
                                        [&](const PhotoImage& i) { return i.offset >= close; }),
                         layout->images.end());
    return LayoutStatus::kWhole;
}

}  // namespace IQA
