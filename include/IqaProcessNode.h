// The processing-node interface, the per-photo record that travels through the chain,
// and the decoder codes shared by every stage.
#ifndef IQA_PROCESS_NODE_H
#define IQA_PROCESS_NODE_H

#include <cstddef>
#include <string>

#include "IqaExport.h"

// One photo's record. Packed to 4 bytes because hosts built against this header share the
// layout with the library. The record owns its strings only; the two pixel buffers belong to
// whoever filled it and are never freed through it. Pixel layout of both buffers: RGB, 3 bytes
// a pixel (R, G, B), rows packed, top row first.
#pragma pack(push, 4)
struct IqaImageInfo {
    std::string jpegName;           // task name: photo file name without folder or extension
    std::string thumbPath;          // file of the first image (the backed-up thumbnail)
    std::string jpegPath;           // file of the second image (the stored JPEG)
    unsigned char* thumbBuffer;     // first image's pixels, capacity bufferSize bytes
    unsigned char* jpegBuffer;      // second image's pixels, capacity bufferSize bytes
    unsigned long long bufferSize;  // capacity in bytes of each buffer
    int thumbWidth;                 // first image, pixels
    int jpegWidth;                  // second image, pixels
    int thumbHeight;                // first image, rows
    int jpegHeight;                 // second image, rows
    int thumbDecoderType;           // IQA::DecoderType of the first image
    int jpegDecoderType;            // IQA::DecoderType of the second image
    double ssim;                    // similarity written by the SSIM stage; 0.0 = no result
};
#pragma pack(pop)

static_assert(sizeof(unsigned long long) == 8 && sizeof(double) == 8 && sizeof(int) == 4,
              "record fields have fixed widths");
static_assert(offsetof(IqaImageInfo, thumbPath) == sizeof(std::string), "field order");
static_assert(offsetof(IqaImageInfo, jpegPath) == 2 * sizeof(std::string), "field order");
static_assert(offsetof(IqaImageInfo, thumbBuffer) == 3 * sizeof(std::string), "field order");
static_assert(offsetof(IqaImageInfo, jpegBuffer) ==
                  offsetof(IqaImageInfo, thumbBuffer) + sizeof(void*),
              "field order");
static_assert(offsetof(IqaImageInfo, bufferSize) ==
                  offsetof(IqaImageInfo, jpegBuffer) + sizeof(void*),
              "bufferSize follows on a 4-byte boundary");
static_assert(offsetof(IqaImageInfo, thumbWidth) == offsetof(IqaImageInfo, bufferSize) + 8,
              "field order");
static_assert(offsetof(IqaImageInfo, jpegWidth) == offsetof(IqaImageInfo, thumbWidth) + 4,
              "widths before heights");
static_assert(offsetof(IqaImageInfo, thumbHeight) == offsetof(IqaImageInfo, thumbWidth) + 8,
              "widths before heights");
static_assert(offsetof(IqaImageInfo, jpegHeight) == offsetof(IqaImageInfo, thumbWidth) + 12,
              "field order");
static_assert(offsetof(IqaImageInfo, thumbDecoderType) == offsetof(IqaImageInfo, thumbWidth) + 16,
              "decoder types follow the heights");
static_assert(offsetof(IqaImageInfo, jpegDecoderType) == offsetof(IqaImageInfo, thumbWidth) + 20,
              "field order");
static_assert(offsetof(IqaImageInfo, ssim) == offsetof(IqaImageInfo, thumbWidth) + 24,
              "ssim follows on a 4-byte boundary");
static_assert(sizeof(IqaImageInfo) == offsetof(IqaImageInfo, ssim) + 8, "no tail padding");
static_assert(alignof(IqaImageInfo) <= 4, "packed to 4 bytes");

namespace IQA {

// Decoder codes carried in IqaImageInfo and DecoderInfo as plain ints.
enum DecoderType : int {
    DECODER_THUMBNAIL = 0,  // the camera's raw thumbnail file
    DECODER_JPEG = 1,       // a JPEG file
};

// Arguments of IqaProcessData::Decoder.
struct DecoderInfo {
    std::string path;               // file to decode
    unsigned long long bufferSize;  // capacity in bytes of the destination buffer
    int decoderType;                // a DecoderType code; any other value decodes nothing
};

// One stage of the chain. Stages hold no state; ProcessImage returns false to stop the
// chain for this photo and never throws.
class IQA_EXPORT IqaProcessNode {
  public:
    virtual ~IqaProcessNode();
    virtual bool ProcessImage(IqaImageInfo& info) = 0;
};

static_assert(sizeof(IqaProcessNode) == sizeof(void*), "a node has no data members");

}  // namespace IQA

#endif  // IQA_PROCESS_NODE_H
