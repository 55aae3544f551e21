// The preparation stage: decoder dispatch, size equalisation and the exported image operations.
#include "IqaProcessData.h"

#include <cstdint>

#include "common/IqaLog.h"
#include "common/MallocBlock.h"
#include "common/SafeCopy.h"
#include "process/BoxReduce.h"
#include "process/JpegFile.h"
#include "process/Nv12.h"
#include "process/Preparation.h"
#include "process/ReducingRowSink.h"
#include "process/ThumbnailFile.h"

namespace IQA {

namespace {

constexpr const char* kOperation = "ProcessImage";

// One decoded image of the record, seen through references to its fields, and the run's view of
// its buffer (null for a host's).
struct ImageView {
    const std::string& path;
    unsigned char* buffer;
    int& width;
    int& height;
    RunBuffer* run;
};

// Decoder's dispatch; a JPEG's rows go to `sink` when one is given, else to the buffer. `next`
// says what of a thumbnail the next stage reads.
long long Dispatch(const DecoderInfo& info, unsigned char* buffer, RunBuffer* run,
                   JpegRowSink* sink, ReadExtent next, int* width, int* height) {
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagProcessData, "Decoder", "begin decoder");
    switch (info.decoderType) {
        case DECODER_JPEG: {
            BufferRowSink plain(buffer, run);
            return DecodeJpegFile(info.path.c_str(), info.bufferSize,
                                  sink != nullptr ? *sink : plain, width, height);
        }
        case DECODER_THUMBNAIL:
            return DecodeThumbnailFile(info.path.c_str(), buffer, info.bufferSize, run, next, width,
                                       height);
        default:
            return 0;
    }
}

bool DecodeInto(const IqaImageInfo& info, const ImageView& image, int decoderType,
                JpegRowSink* sink, ReadExtent next) {
    const long long count =
        Dispatch(DecoderInfo{image.path, info.bufferSize, decoderType}, image.buffer, image.run,
                 sink, next, &image.width, &image.height);
    return count >= 1 && image.width >= 1 && image.height >= 1;
}

size_t RgbBytes(const ImageView& image) {
    return static_cast<size_t>(image.width) * static_cast<size_t>(image.height) * 3;
}

// The reduction of a decoded image: into a block of its own, then copied to the buffer's start.
bool ReduceInto(const ImageView& large, const ImageView& small, size_t reducedBytes) {
    MallocBlock reduced(reducedBytes);
    if (!reduced) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "memory allocation failed");
        return false;
    }
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation,
                      memset_s(reduced.get(), reducedBytes, 0, reducedBytes));
    // The larger image's decoded height bounds the rows a block may read, so differently shaped
    // images never make the reduction read beyond what was decoded.
    BoxReduce(large.buffer, large.width, large.height, reduced.get(), small.width, small.height);
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation,
                      memcpy_s(large.buffer, reducedBytes, reduced.get(), reducedBytes));
    return true;
}

}  // namespace

bool Prepare(IqaImageInfo& info, const RunInputs& run) {
    const ImageView first{info.thumbPath, info.thumbBuffer, info.thumbWidth, info.thumbHeight,
                          run.first};
    const ImageView second{info.jpegPath, info.jpegBuffer, info.jpegWidth, info.jpegHeight,
                           run.second};
    // The next stage compares at the first image's size, unless that one is reduced (below).
    if (!DecodeInto(info, first, info.thumbDecoderType, nullptr, run.next)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Decoder failed");
        return false;
    }
    // A second image with more pixels is reduced to the first's size. A JPEG is reduced while it
    // decodes, straight into its own buffer, so its full-size image never goes out to memory.
    const size_t demand = run.next != nullptr ? run.next(first.width, first.height) : kWholeImage;
    ReducingRowSink sink(second.buffer, first.width, first.height, second.buffer, second.run,
                         demand);
    if (!DecodeInto(info, second, info.jpegDecoderType, &sink, nullptr)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Decoder failed");
        return false;
    }
    const int64_t count1 = static_cast<int64_t>(first.width) * first.height;
    const int64_t count2 = static_cast<int64_t>(second.width) * second.height;
    if (count1 == count2) {
        return true;
    }
    const ImageView& large = count1 < count2 ? second : first;
    const ImageView& small = count1 < count2 ? first : second;
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagProcessData, kOperation, "begin downscale jpeg %s",
               large.path.c_str());
    size_t reducedBytes = RgbBytes(small);
    if (!FinishThumbnail(large.run)) {
        return false;
    }
    if (sink.reduced()) {
        reducedBytes = sink.written();
    } else if (!ReduceInto(large, small, reducedBytes)) {
        return false;
    }
    large.width = small.width;
    large.height = small.height;
    // The reduced image stands at the buffer's start; behind it the buffer must read as cleared
    // whole, which for the run's own buffers means clearing only what an earlier image left.
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation,
                      ClearFrom(large.buffer, info.bufferSize, large.run, reducedBytes));
    return true;
}

IqaProcessData::IqaProcessData() = default;
IqaProcessData::~IqaProcessData() = default;

long long IqaProcessData::Decoder(DecoderInfo info, unsigned char* buffer, int* width,
                                  int* height) {
    return Dispatch(info, buffer, nullptr, nullptr, nullptr, width, height);
}

bool IqaProcessData::ProcessImage(IqaImageInfo& info) {
    return Prepare(info, RunInputs{});
}

void IqaProcessData::DownScale(const unsigned char* src, int srcWidth, unsigned char* dst,
                               int dstWidth, int dstHeight) {
    if (srcWidth == 0 || dstWidth == 0 || dstHeight == 0) {
        IQA_LOGE(kTagProcessData, "Input error");
        return;
    }
    BoxReduce(src, srcWidth, kUnboundedRows, dst, dstWidth, dstHeight);
}

void IqaProcessData::ConvertRGBToNV12(const unsigned char* rgb, int width, int height,
                                      unsigned char* nv12) {
    RgbToNv12(rgb, width, height, nv12);
}

}  // namespace IQA
