// The record of one photo/thumbnail pair as the batch run builds it for its chain.
#ifndef IQA_PROCESS_PAIR_RECORD_H
#define IQA_PROCESS_PAIR_RECORD_H

#include <string>

#include "IqaProcessNode.h"

namespace IQA {

// Two pixel buffers of `capacity` bytes each, owned by the caller.
struct PairBuffers {
    unsigned char* thumb;
    unsigned char* photo;
    unsigned long long capacity;
};

// The raw thumbnail is the first image, the photo the second; sizes and the score are left for
// the stages to write.
inline IqaImageInfo PairRecord(const std::string& name, const std::string& thumbPath,
                               const std::string& photoPath, const PairBuffers& buffers,
                               int photoDecoder = DECODER_JPEG) {
    IqaImageInfo info{};
    info.jpegName = name;
    info.thumbPath = thumbPath;
    info.jpegPath = photoPath;
    info.thumbBuffer = buffers.thumb;
    info.jpegBuffer = buffers.photo;
    info.bufferSize = buffers.capacity;
    info.thumbDecoderType = DECODER_THUMBNAIL;
    info.jpegDecoderType = photoDecoder;
    return info;
}

}  // namespace IQA

#endif  // IQA_PROCESS_PAIR_RECORD_H
