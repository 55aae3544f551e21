// A camera photo whose trailer has bytes flipped (lengths, tags, other data, file header): a
// dump must refuse it, or yield exactly the reference result, whose record chain walks back to
// the JPEG's end. Never a record inside the JPEG, never a torn chain.
#include <cstring>

#include "IqaUpLoad.h"
#include "fuzz/FuzzSupport.h"
#include "tests/reference/ReferenceDump.h"
#include "tools/CameraFiles.h"

namespace {

std::vector<uint8_t> gPhoto;
size_t gTrailerAt = 0;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    std::vector<uint8_t> rgb(24 * 16 * 3);
    for (size_t i = 0; i < rgb.size(); ++i) {
        rgb[i] = static_cast<uint8_t>(i * 37);
    }
    gPhoto = iqa_tools::EncodeJpeg(rgb, 24, 16, 3, 80);
    gTrailerAt = gPhoto.size();
    const std::vector<uint8_t> trailer = iqa_tools::Trailer(
        {{"CAMREC", std::vector<uint8_t>(70, 1)}, {"CAMINFO", std::vector<uint8_t>(30, 2)}},
        std::vector<uint8_t>(11, 3));
    gPhoto.insert(gPhoto.end(), trailer.begin(), trailer.end());
    return 0;
}

// Input: (position, xor) byte triples, each flipping one byte of the trailer.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> photo = gPhoto;
    const size_t trailer = photo.size() - gTrailerAt;
    for (size_t i = 0; i + 3 <= size; i += 3) {
        photo[gTrailerAt + (static_cast<size_t>(data[i]) << 8 | data[i + 1]) % trailer] ^=
            data[i + 2];
    }
    const std::vector<uint8_t> custom(40, 9);
    IQA::ImageDumpExpand descriptor = {8, 4, 8, 40, 1, "Iqa_comparessim", {}};
    iqa_fuzz::WriteScratch(photo);
    IQA::IqaUpLoad().SaveCustomBuffer(iqa_fuzz::ScratchPath(), custom.data(), &descriptor);
    const std::vector<uint8_t> after = iqa_fuzz::ReadScratch();
    IQA_FUZZ_CHECK(after == iqa_ref::ExpectedDump(photo, custom, descriptor));
    const size_t end = iqa_ref::JpegEnd(after);
    IQA_FUZZ_CHECK(after == photo || (end == gTrailerAt && iqa_ref::LastRecordIfWhole(after, end)));
    return 0;
}
