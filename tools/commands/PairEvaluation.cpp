// The pair evaluation: the library's stages on a record like the batch run's.
#include "tools/commands/PairEvaluation.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "common/CameraLayout.h"
#include "process/BlockSsim.h"
#include "process/PairRecord.h"
#include "tools/commands/LibraryLog.h"
#include "tools/commands/LogLines.h"

namespace iqa_tools {

namespace {

Image ImageOf(const unsigned char* buffer, int width, int height) {
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
    return Image{width, height, Bytes(buffer, buffer + bytes)};
}

// The compared pair and its blocks, once the stage has scored it.
void AddBlocks(Image thumbnail, Image photo, PairEvaluation* e) {
    e->ok = true;
    e->compared = {thumbnail.width, thumbnail.height};
    e->verdict = Verdict(e->ssim);
    e->blocksX = thumbnail.width / IQA::kSsimBlock;
    e->blocksY = thumbnail.height / IQA::kSsimBlock;
    IQA::ForEachBlockSsim(thumbnail.rgb.data(), photo.rgb.data(), thumbnail.width, thumbnail.height,
                          [&](int, int, double value) { e->blocks.push_back(value); });
    e->thumbImage = std::move(thumbnail);
    e->photoImage = std::move(photo);
}

}  // namespace

const char* Verdict(double ssim) {
    return ssim > IQA::kHighSimilarity ? "high" : "low";
}

PairEvaluation EvaluatePair(const std::string& photo, const std::string& thumbnail, bool rawPhoto) {
    PairEvaluation e;
    const std::unique_ptr<unsigned char, decltype(&free)> thumb(
        static_cast<unsigned char*>(calloc(1, IQA::kPixelBufferSize)), free);
    const std::unique_ptr<unsigned char, decltype(&free)> picture(
        static_cast<unsigned char*>(calloc(1, IQA::kPixelBufferSize)), free);
    if (!thumb || !picture) {
        e.error = "not enough memory for the two pixel buffers";
        return e;
    }
    IqaImageInfo info = IQA::PairRecord(photo, thumbnail, photo,
                                        {thumb.get(), picture.get(), IQA::kPixelBufferSize},
                                        rawPhoto ? IQA::DECODER_THUMBNAIL : IQA::DECODER_JPEG);
    bool prepared = false, scored = false;
    {
        // The decoded sizes (before any reduction), in decoding order, and the first error.
        int decoded = 0;
        const LibraryLog capture([&](int priority, const char*, const char* message) {
            LogLine line;
            Size size;
            if (!ParseLogLine(message, &line)) {
                return;
            }
            if (sscanf(line.text.c_str(), "output width %d, height %d", &size.width,
                       &size.height) == 2) {
                (decoded++ == 0 ? e.thumbnail : e.photo) = size;
            } else if (priority >= ANDROID_LOG_ERROR && e.error.empty()) {
                e.error = line.operation + ": " + line.text;
            }
        });
        prepared = IQA::IqaProcessData().ProcessImage(info);
        scored = prepared && IQA::IqaCompSim().ProcessImage(info);
    }
    if (!scored) {
        if (prepared) {
            e.error = "no whole 8x8 block to compare at " + std::to_string(info.thumbWidth) + "x" +
                      std::to_string(info.thumbHeight);
        }
        return e;
    }
    e.ssim = info.ssim;
    AddBlocks(ImageOf(thumb.get(), info.thumbWidth, info.thumbHeight),
              ImageOf(picture.get(), info.jpegWidth, info.jpegHeight), &e);
    return e;
}

PairEvaluation EvaluateImages(const Image& thumbnail, const Image& photo) {
    PairEvaluation e;
    e.thumbnail = {thumbnail.width, thumbnail.height};
    e.photo = {photo.width, photo.height};
    if (thumbnail.width != photo.width || thumbnail.height != photo.height) {
        e.error = "the images differ in size";
        return e;
    }
    e.ssim = IQA::IqaCompSim().CalculateRgbSsim(thumbnail.rgb.data(), photo.rgb.data(),
                                                thumbnail.width, thumbnail.height);
    if (e.ssim == 0.0) {  // the stage's way of saying it compared nothing
        e.error = "no whole 8x8 block to compare at " + std::to_string(thumbnail.width) + "x" +
                  std::to_string(thumbnail.height);
        return e;
    }
    AddBlocks(thumbnail, photo, &e);
    return e;
}

}  // namespace iqa_tools
