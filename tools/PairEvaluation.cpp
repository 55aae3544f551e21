// The pair evaluation: the library's stages on a record like the batch run's.
#include "PairEvaluation.h"

#include <android/log.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "BlockSsim.h"
#include "IqaCompSim.h"
#include "IqaProcessData.h"
#include "LogLines.h"

namespace iqa_tools {

namespace {

constexpr unsigned long long kCapacity = 64000000;  // the batch run's buffers

PairEvaluation* gEvaluation = nullptr;

// Keeps the decoded sizes (before any reduction) and the first error the library logs.
void Observe(const struct __android_logger_data* data, const char* message) {
    LogLine line;
    if (!ParseLogLine(message, &line)) {
        return;
    }
    Size size;
    if (sscanf(line.text.c_str(), "output width %d, height %d", &size.width, &size.height) == 2) {
        (line.operation == "JpegDecoder" ? gEvaluation->photo : gEvaluation->thumbnail) = size;
    } else if (data->priority >= ANDROID_LOG_ERROR && gEvaluation->error.empty()) {
        gEvaluation->error = line.operation + ": " + line.text;
    }
}

Image ImageOf(const unsigned char* buffer, int width, int height) {
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
    return Image{width, height, Bytes(buffer, buffer + bytes)};
}

}  // namespace

const char* Verdict(double ssim) {
    return ssim > static_cast<double>(0.9f) ? "high" : "low";
}

PairEvaluation EvaluatePair(const std::string& photo, const std::string& thumbnail) {
    PairEvaluation e;
    const std::unique_ptr<unsigned char, decltype(&free)> thumb(
        static_cast<unsigned char*>(calloc(1, kCapacity)), free);
    const std::unique_ptr<unsigned char, decltype(&free)> picture(
        static_cast<unsigned char*>(calloc(1, kCapacity)), free);
    if (!thumb || !picture) {
        e.error = "not enough memory for the two pixel buffers";
        return e;
    }
    IqaImageInfo info{};
    info.jpegName = photo;
    info.thumbPath = thumbnail;
    info.jpegPath = photo;
    info.thumbBuffer = thumb.get();
    info.jpegBuffer = picture.get();
    info.bufferSize = kCapacity;
    info.thumbDecoderType = IQA::DECODER_THUMBNAIL;
    info.jpegDecoderType = IQA::DECODER_JPEG;
    gEvaluation = &e;
    __android_log_set_logger(Observe);
    const bool prepared = IQA::IqaProcessData().ProcessImage(info);
    const bool scored = prepared && IQA::IqaCompSim().ProcessImage(info);
    __android_log_set_logger(__android_log_stderr_logger);
    if (!scored) {
        if (prepared) {
            e.error = "no whole 8x8 block to compare at " + std::to_string(info.thumbWidth) + "x" +
                      std::to_string(info.thumbHeight);
        }
        return e;
    }
    e.ok = true;
    e.compared = {info.thumbWidth, info.thumbHeight};
    e.ssim = info.ssim;
    e.verdict = Verdict(info.ssim);
    e.thumbImage = ImageOf(thumb.get(), info.thumbWidth, info.thumbHeight);
    e.photoImage = ImageOf(picture.get(), info.jpegWidth, info.jpegHeight);
    e.blocksX = info.thumbWidth / IQA::kSsimBlock;
    e.blocksY = info.thumbHeight / IQA::kSsimBlock;
    IQA::ForEachBlockSsim(thumb.get(), picture.get(), info.thumbWidth, info.thumbHeight,
                          [&](int, int, double value) { e.blocks.push_back(value); });
    return e;
}

}  // namespace iqa_tools
