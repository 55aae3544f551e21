// A batch run's preparation of a damaged photo: the photo is decoded only down to the rows whose
// reduced bytes the SSIM reads, and the decode may end there once the rest of the file is proven
// harmless; the thumbnail is compacted only as far as the SSIM reads, and wholly before it is
// reduced itself. Whatever the damage and the sizes, it must come to the outcome of a whole
// decode reduced plainly: success or failure and the SSIM bit for bit; its decoder lines may only
// lack warnings, and only when both succeed.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "fuzz/FuzzSupport.h"
#include "process/BlockSsim.h"
#include "process/PairRecord.h"
#include "process/Preparation.h"
#include "tests/reference/ReferenceKernels.h"
#include "tools/files/SceneGenerator.h"

namespace {

constexpr size_t kCapacity = 1 << 20;
constexpr int kWidth = 160, kHeight = 120;

// Photos to damage: 4:2:0 with and without restart markers, 4:4:4, progressive, greyscale.
const std::vector<std::vector<unsigned char>>& Photos() {
    static const std::vector<std::vector<unsigned char>> photos = [] {
        const std::vector<unsigned char> scene = iqa_tools::RenderScene(kWidth, kHeight, 5);
        const iqa_tools::JpegOptions options[] = {
            {}, {false, 3, false}, {false, 2, true}, {true, 0, false}};
        std::vector<std::vector<unsigned char>> made;
        for (const auto& o : options) {
            made.push_back(iqa_tools::EncodeJpeg(scene, kWidth, kHeight, 3, 85, o));
        }
        std::vector<unsigned char> grey(scene.begin(), scene.begin() + kWidth * kHeight);
        made.push_back(iqa_tools::EncodeJpeg(grey, kWidth, kHeight, 1, 85));
        return made;
    }();
    return photos;
}

// Flips, inserts, removes or cuts bytes at positions the input chooses.
std::vector<unsigned char> Damage(FuzzedDataProvider& input, std::vector<unsigned char> photo) {
    const int edits = input.ConsumeIntegralInRange(0, 4);
    for (int i = 0; i < edits && !photo.empty(); ++i) {
        const size_t at = input.ConsumeIntegralInRange<size_t>(0, photo.size() - 1);
        const auto where = photo.begin() + static_cast<long>(at);
        switch (input.ConsumeIntegralInRange(0, 3)) {
            case 0:
                *where ^= input.ConsumeIntegralInRange<unsigned char>(1, 255);
                break;
            case 1:
                photo.insert(where, {0xFF, input.ConsumeIntegral<unsigned char>()});
                break;
            case 2:
                photo.erase(where,
                            where + static_cast<long>(std::min<size_t>(
                                        photo.size() - at, input.ConsumeIntegral<uint8_t>())));
                break;
            default:
                photo.resize(at);
                break;
        }
    }
    return photo;
}

struct Outcome {
    bool ok;
    double ssim;
    std::vector<std::string> lines;  // the JPEG decoder's
};

std::vector<std::string> DecoderLines() {
    std::vector<std::string> lines;
    for (const std::string& line : iqa_fuzz::Logged()) {
        if (line.rfind("[JpegDecoder:", 0) == 0) {
            lines.push_back(line);
        }
    }
    iqa_fuzz::Logged().clear();
    return lines;
}

// The preparation and SSIM stages' result worked out plainly from a whole decode: the image with
// more pixels reduced to the other's size, the SSIM at the first image's size.
Outcome Whole(const std::string& photo, const std::vector<unsigned char>& thumb, int tw, int th) {
    static std::vector<unsigned char> decoded(kCapacity);
    int w = 0, h = 0;
    const bool ok =
        IQA::IqaProcessData().JpegDecoder(photo.c_str(), decoded.data(), kCapacity, &w, &h) > 0;
    if (!ok) {
        return {false, 0.0, DecoderLines()};
    }
    const int64_t thumbPixels = static_cast<int64_t>(tw) * th, photoPixels = int64_t{w} * h;
    const bool thumbLarger = thumbPixels > photoPixels;
    const int cw = thumbLarger ? w : tw, ch = thumbLarger ? h : th;
    std::vector<unsigned char> reduced(static_cast<size_t>(cw) * ch * 3);
    if (thumbLarger) {
        iqa_ref::DownScale(thumb.data(), tw, th, reduced.data(), cw, ch);
    } else if (thumbPixels < photoPixels) {
        iqa_ref::DownScale(decoded.data(), w, h, reduced.data(), cw, ch);
    }
    const unsigned char* first = thumbLarger ? reduced.data() : thumb.data();
    const unsigned char* second = thumbPixels < photoPixels ? reduced.data() : decoded.data();
    return {true, IQA::IqaCompSim().CalculateRgbSsim(first, second, cw, ch), DecoderLines()};
}

Outcome Demanded(const std::string& thumbPath, const std::string& photo) {
    std::vector<unsigned char> first(kCapacity), second(kCapacity);  // zero, as a run's start
    IQA::RunBuffer firstRun{first.data(), kCapacity}, secondRun{second.data(), kCapacity};
    IqaImageInfo info =
        IQA::PairRecord("photo", thumbPath, photo, {first.data(), second.data(), kCapacity});
    const bool ok = IQA::Prepare(info, {&firstRun, &secondRun, IQA::BlockSsimReach});
    const double ssim = ok ? IQA::IqaCompSim().CalculateRgbSsim(first.data(), second.data(),
                                                                info.thumbWidth, info.thumbHeight)
                           : 0.0;
    return {ok, ssim, DecoderLines()};
}

// True when `fewer` is `lines` with some of them left out, all after the first ("output width
// ..."): of a decode that succeeded, those are warnings.
bool LacksOnlyWarnings(const std::vector<std::string>& lines,
                       const std::vector<std::string>& fewer) {
    if (fewer.empty() || lines.empty() || fewer[0] != lines[0]) {
        return false;
    }
    auto next = lines.begin() + 1;
    for (auto line = fewer.begin() + 1; line != fewer.end(); ++line, ++next) {
        next = std::find(next, lines.end(), *line);
        if (next == lines.end()) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::CaptureLog();
    Photos();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto& photos = Photos();
    const auto& base = photos[input.ConsumeIntegralInRange<size_t>(0, photos.size() - 1)];
    // Mostly smaller than the photo, as a camera's are; larger ones are reduced in its place.
    const int tw = input.ConsumeIntegralInRange(1, 2 * kWidth);
    const int th = input.ConsumeIntegralInRange(1, kHeight);
    iqa_fuzz::WriteScratch(Damage(input, base));
    const std::string thumbPath = iqa_fuzz::ScratchPath() + ".thumbnail";
    std::vector<unsigned char> thumb(static_cast<size_t>(tw) * th * 3);
    for (size_t i = 0; i < thumb.size(); ++i) {
        thumb[i] = static_cast<unsigned char>(i * 7 + i / 97);
    }
    iqa_tools::WriteWholeFile(thumbPath, iqa_tools::ThumbnailFile(tw, th, thumb));

    iqa_fuzz::Logged().clear();
    const Outcome whole = Whole(iqa_fuzz::ScratchPath(), thumb, tw, th);
    const Outcome demanded = Demanded(thumbPath, iqa_fuzz::ScratchPath());
    unlink(thumbPath.c_str());
    IQA_FUZZ_CHECK(demanded.ok == whole.ok);
    IQA_FUZZ_CHECK(demanded.ssim == whole.ssim);
    IQA_FUZZ_CHECK(demanded.lines == whole.lines ||
                   (whole.ok && LacksOnlyWarnings(whole.lines, demanded.lines)));
    return 0;
}
