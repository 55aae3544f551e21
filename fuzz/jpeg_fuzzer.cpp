// JPEG decoder: any file bytes. Fatal library errors must come back as a failed decode, and a
// success must fill width x height x 3 bytes within the capacity. The same bytes also go through
// the reduction that consumes rows while they decode.
#include "FuzzSupport.h"
#include "IqaProcessData.h"
#include "JpegFile.h"
#include "ReducingRowSink.h"

namespace {
constexpr size_t kCapacity = 3 * 1024 * 1024;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    iqa_fuzz::WriteScratch(data, size);
    static std::vector<unsigned char> buffer(kCapacity);
    int width = -1, height = -1;
    const long long pixels = IQA::IqaProcessData().JpegDecoder(
        iqa_fuzz::ScratchPath().c_str(), buffer.data(), kCapacity, &width, &height);
    if (pixels > 0) {
        IQA_FUZZ_CHECK(pixels == static_cast<long long>(width) * height);
        IQA_FUZZ_CHECK(static_cast<size_t>(pixels) * 3 <= kCapacity);
        iqa_fuzz::Touch(buffer.data(), static_cast<size_t>(pixels) * 3);
    }
    std::vector<unsigned char> reduced(8 * 6 * 3);
    IQA::ReducingRowSink sink(reduced.data(), 8, 6, buffer.data());
    if (IQA::DecodeJpegFile(iqa_fuzz::ScratchPath().c_str(), kCapacity, sink, &width, &height) >
            0 &&
        sink.reduced()) {
        iqa_fuzz::Touch(reduced.data(), reduced.size());
    }
    return 0;
}
