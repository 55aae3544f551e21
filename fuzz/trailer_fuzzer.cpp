// Camera photos, plain and with further images behind the primary (indexed in either byte
// order, or appended without an index), whose trailer and multi-picture index have bytes flipped
// (lengths, tags, entries, offsets): a dump must leave the photo as it was or make exactly the
// insertion in front of the last record, as the reference says. Never a torn chain, and, while
// the index is intact, never a record in front of the trailer's start.
#include <algorithm>

#include "IqaUpLoad.h"
#include "fuzz/FuzzSupport.h"
#include "tests/reference/ReferenceDump.h"
#include "tools/files/CameraFiles.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Photo {
    Bytes bytes;
    size_t indexAt = 0, indexLength = 0;  // the index's segment, when there is one
    size_t trailerAt = 0;
};

std::vector<Photo> gPhotos;

Bytes Jpeg(int width, int height, int components, uint8_t seed) {
    Bytes pixels(static_cast<size_t>(width) * height * components);
    for (size_t i = 0; i < pixels.size(); ++i) {
        pixels[i] = static_cast<uint8_t>(i * 37 + seed);
    }
    return iqa_tools::EncodeJpeg(pixels, width, height, components, 80);
}

Photo WithTrailer(Bytes images) {
    Photo photo;
    const char mark[] = "MPF";
    const auto index = std::search(images.begin(), images.end(), mark, mark + 4);
    if (index != images.end()) {
        photo.indexAt = static_cast<size_t>(index - images.begin());
        photo.indexLength = (size_t{index[-2]} << 8 | index[-1]) - 2;
    }
    photo.trailerAt = images.size();
    const Bytes trailer =
        iqa_tools::Trailer({{"CAMREC", Bytes(70, 1)}, {"CAMINFO", Bytes(30, 2)}}, Bytes(11, 3));
    images.insert(images.end(), trailer.begin(), trailer.end());
    photo.bytes = images;
    return photo;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    const Bytes primary = Jpeg(24, 16, 3, 0), gain = Jpeg(8, 8, 1, 5), depth = Jpeg(8, 16, 1, 9);
    Bytes appended = primary;
    appended.insert(appended.end(), gain.begin(), gain.end());
    appended.insert(appended.end(), depth.begin(), depth.end());
    gPhotos = {WithTrailer(primary), WithTrailer(iqa_tools::MultiPictureJpeg(primary, {{0, gain}})),
               WithTrailer(iqa_tools::MultiPictureJpeg(primary, {{0x020002, depth}, {0, gain}},
                                                       {true, 70})),
               WithTrailer(appended)};
    return 0;
}

// Input: the photo to take, then (position, xor) byte triples, each flipping one byte of its
// index or its trailer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const Photo& base = gPhotos[data[0] % gPhotos.size()];
    Bytes photo = base.bytes;
    const size_t trailer = photo.size() - base.trailerAt;
    bool indexIntact = true;
    for (size_t i = 1; i + 3 <= size; i += 3) {
        size_t at =
            (static_cast<size_t>(data[i]) << 8 | data[i + 1]) % (base.indexLength + trailer);
        indexIntact = indexIntact && (at >= base.indexLength || data[i + 2] == 0);
        at = at < base.indexLength ? base.indexAt + at : base.trailerAt + at - base.indexLength;
        photo[at] ^= data[i + 2];
    }
    const Bytes custom(40, 9);
    IQA::ImageDumpExpand descriptor = {8, 4, 8, 40, 1, "Iqa_comparessim", {}};
    iqa_fuzz::WriteScratch(photo);
    IQA::IqaUpLoad().SaveCustomBuffer(iqa_fuzz::ScratchPath(), custom.data(), &descriptor);
    const Bytes after = iqa_fuzz::ReadScratch();
    IQA_FUZZ_CHECK(after == iqa_ref::ExpectedDump(photo, custom, descriptor));
    const size_t last = iqa_ref::LastRecordIfWhole(photo);
    IQA_FUZZ_CHECK(after == photo || after == iqa_ref::WithRecord(photo, last, custom, descriptor));
    IQA_FUZZ_CHECK(after == photo || (iqa_ref::LastRecordIfWhole(after) != 0 &&
                                      (!indexIntact || last >= base.trailerAt)));
    return 0;
}
