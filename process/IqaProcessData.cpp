// The preparation stage: decoder dispatch, size equalisation and the exported image operations.
#include "IqaProcessData.h"

#include <cstdint>

#include "BoxReduce.h"
#include "IqaLog.h"
#include "MallocBlock.h"
#include "Nv12.h"
#include "SafeCopy.h"
#include "WrittenExtent.h"

namespace IQA {

namespace {

// One decoded image of the record, seen through references to its fields.
struct ImageView {
    const std::string& path;
    unsigned char* buffer;
    int& width;
    int& height;
};

bool DecodeInto(IqaProcessData& stage, const IqaImageInfo& info, const ImageView& image,
                int decoderType) {
    const long long count = stage.Decoder(DecoderInfo{image.path, info.bufferSize, decoderType},
                                          image.buffer, &image.width, &image.height);
    return count >= 1 && image.width >= 1 && image.height >= 1;
}

}  // namespace

IqaProcessData::IqaProcessData() = default;
IqaProcessData::~IqaProcessData() = default;

long long IqaProcessData::Decoder(DecoderInfo info, unsigned char* buffer, int* width,
                                  int* height) {
    IQA_LOGI(kTagProcessData, "begin decoder");
    switch (info.decoderType) {
        case DECODER_JPEG:
            return JpegDecoder(info.path.c_str(), buffer, info.bufferSize, width, height);
        case DECODER_THUMBNAIL:
            return ThumbnailDecoder(info.path.c_str(), buffer, info.bufferSize, width, height);
        default:
            return 0;
    }
}

bool IqaProcessData::ProcessImage(IqaImageInfo& info) {
    const ImageView first{info.thumbPath, info.thumbBuffer, info.thumbWidth, info.thumbHeight};
    const ImageView second{info.jpegPath, info.jpegBuffer, info.jpegWidth, info.jpegHeight};
    if (!DecodeInto(*this, info, first, info.thumbDecoderType) ||
        !DecodeInto(*this, info, second, info.jpegDecoderType)) {
        IQA_LOGE(kTagProcessData, "Decoder failed");
        return false;
    }
    const int64_t count1 = static_cast<int64_t>(first.width) * first.height;
    const int64_t count2 = static_cast<int64_t>(second.width) * second.height;
    if (count1 == count2) {
        return true;
    }
    const ImageView& large = count1 < count2 ? second : first;
    const ImageView& small = count1 < count2 ? first : second;
    IQA_LOGI(kTagProcessData, "begin downscale jpeg %s", large.path.c_str());

    const size_t reducedBytes = static_cast<size_t>(small.width) * small.height * 3;
    MallocBlock reduced(reducedBytes, MallocBlock::Fill::kNone);
    if (!reduced) {
        IQA_LOGE(kTagProcessData, "memory allocation failed");
        return false;
    }
    IQA_CHECK_COPY(kTagProcessData, memset_s(reduced.get(), reducedBytes, 0, reducedBytes));
    // The larger image's decoded height bounds the rows a block may read, so differently
    // shaped images never make the reduction read beyond what was decoded.
    BoxReduce(large.buffer, large.width, large.height, reduced.get(), small.width, small.height);
    large.width = small.width;
    large.height = small.height;
    // The whole buffer ends up zero behind the reduced image; only written bytes need clearing.
    IQA_CHECK_COPY(kTagProcessData, WrittenExtent::Clear(large.buffer, info.bufferSize));
    IQA_CHECK_COPY(kTagProcessData,
                   memcpy_s(large.buffer, reducedBytes, reduced.get(), reducedBytes));
    WrittenExtent::NoteWritten(large.buffer, reducedBytes);
    return true;
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
