// The preparation stage: decodes a photo's two images and brings them to one size.
#ifndef IQA_PROCESS_DATA_H
#define IQA_PROCESS_DATA_H

#include "IqaProcessNode.h"

namespace IQA {

class IQA_EXPORT IqaProcessData : public IqaProcessNode {
  public:
    IqaProcessData();
    ~IqaProcessData() override;

    // Decodes both files of the record into its buffers and reduces the image with more
    // pixels to the other's size. True: both buffers hold RGB images of thumbWidth x
    // thumbHeight pixels (or of equal pixel count when nothing was resized).
    bool ProcessImage(IqaImageInfo& info) override;

    // Decodes info.path with the decoder named by info.decoderType into buffer (capacity
    // info.bufferSize). Returns width x height, or 0 on failure.
    long long Decoder(DecoderInfo info, unsigned char* buffer, int* width, int* height);

    // Raw thumbnail: 16-byte header (width and height, little-endian int32, at offsets 8 and
    // 12), then 4 bytes a pixel. The buffer must hold the raw 4 x width x height bytes.
    long long ThumbnailDecoder(const char* path, unsigned char* buffer,
                               unsigned long long bufferSize, int* width, int* height);

    // JPEG through libjpeg, decoded to RGB. Corrupt data fails with a log line, never aborts.
    long long JpegDecoder(const char* path, unsigned char* buffer, unsigned long long bufferSize,
                          int* width, int* height);

    // Box reduction by k = srcWidth / dstWidth in both directions: every output byte is the
    // rounded-down mean of a k x k block of the source (row length srcWidth pixels, k x
    // dstHeight rows are read). dst must hold 3 x dstWidth x dstHeight bytes.
    void DownScale(const unsigned char* src, int srcWidth, unsigned char* dst, int dstWidth,
                   int dstHeight);

    // RGB to NV12. nv12 must hold width x height + 2 x ceil(width/2) x ceil(height/2) bytes
    // (width x height x 3 / 2 for even sizes); chroma comes from the top-left pixel of each
    // 2 x 2 block.
    void ConvertRGBToNV12(const unsigned char* rgb, int width, int height, unsigned char* nv12);
};

}  // namespace IQA

#endif  // IQA_PROCESS_DATA_H
