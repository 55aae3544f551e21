// Studio-range BT.601 YUV to RGB, chroma shared by each 2 x 2 block.
#include "tools/files/Nv12Image.h"

#include <algorithm>
#include <cstdint>

namespace iqa_tools {

namespace {

unsigned char Clamp(float v) {
    return static_cast<unsigned char>(std::clamp(v + 0.5f, 0.0f, 255.0f));
}

}  // namespace

bool Nv12ToRgb(const unsigned char* nv12, const Descriptor& d, Bytes* rgb) {
    const int64_t w = d.width, h = d.height;
    const int64_t chromaRow = 2 * ((w + 1) / 2);
    if (w < 1 || h < 1 || d.stride != w || d.size != w * h + chromaRow * ((h + 1) / 2)) {
        return false;
    }
    rgb->resize(static_cast<size_t>(w * h * 3));
    const unsigned char* chroma = nv12 + w * h;
    for (int64_t y = 0; y < h; ++y) {
        for (int64_t x = 0; x < w; ++x) {
            const float luma = 1.164f * (nv12[y * w + x] - 16);
            const unsigned char* uv = chroma + (y / 2) * chromaRow + (x & ~int64_t{1});
            const float u = uv[0] - 128.0f, v = uv[1] - 128.0f;
            unsigned char* p = &(*rgb)[static_cast<size_t>((y * w + x) * 3)];
            p[0] = Clamp(luma + 1.596f * v);
            p[1] = Clamp(luma - 0.392f * u - 0.813f * v);
            p[2] = Clamp(luma + 2.017f * u);
        }
    }
    return true;
}

bool PreviewOf(IQA::ByteSource& photo, const TrailerListing& listing, Image* preview,
               uint64_t* offset, std::string* why) {
    for (size_t i = 0; i < listing.records.size(); ++i) {  // newest dump first
        const TrailerRecord& r = listing.records[i];
        const std::optional<Descriptor>& d = listing.descriptors[i];
        if (r.tag != "Iqa_com" || !d) {
            continue;
        }
        *offset = r.payloadOffset;
        Bytes nv12(static_cast<size_t>(d->size));
        if (!photo.Read(r.payloadOffset, nv12.data(), nv12.size()) ||
            !Nv12ToRgb(nv12.data(), *d, &preview->rgb)) {
            *why = "has an Iqa_com record at " + std::to_string(r.payloadOffset) +
                   " that is not a " + std::to_string(d->width) + "x" + std::to_string(d->height) +
                   " NV12 image";
            return false;
        }
        preview->width = d->width;
        preview->height = d->height;
        return true;
    }
    *why = "holds no Iqa_com record" + (listing.problem.empty() ? "" : ": " + listing.problem);
    return false;
}

bool NewestPreview(const Bytes& photo, Image* preview, uint64_t* offset, std::string* why) {
    TrailerListing listing;
    ReadTrailer(photo, &listing);  // records read before any damage are still usable
    IQA::MemorySource source(photo.data(), photo.size());
    return PreviewOf(source, listing, preview, offset, why);
}

}  // namespace iqa_tools
