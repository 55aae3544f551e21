// JPEG decoder: any file bytes. Fatal library errors must come back as a failed decode, and a
// success must fill width x height x 3 bytes within the capacity. The same bytes also go through
// the reduction that consumes rows while they decode (leaving out columns and rows it does not
// read): it must succeed or fail alike, log the same decoder lines, and give exactly the
// reduction of the whole decode.
#include <fuzzer/FuzzedDataProvider.h>

#include "IqaProcessData.h"
#include "fuzz/FuzzSupport.h"
#include "process/JpegFile.h"
#include "process/ReducingRowSink.h"
#include "tests/reference/ReferenceKernels.h"

namespace {
constexpr size_t kCapacity = 3 * 1024 * 1024;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::CaptureLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int dstWidth = input.ConsumeIntegralInRange(1, 64);
    const int dstHeight = input.ConsumeIntegralInRange(1, 48);
    const std::vector<uint8_t> file = input.ConsumeRemainingBytes<uint8_t>();
    iqa_fuzz::WriteScratch(file);
    static std::vector<unsigned char> buffer(kCapacity);
    int width = -1, height = -1;
    iqa_fuzz::Logged().clear();
    const long long pixels = IQA::IqaProcessData().JpegDecoder(
        iqa_fuzz::ScratchPath().c_str(), buffer.data(), kCapacity, &width, &height);
    const std::vector<std::string> whole = iqa_fuzz::Logged();
    if (pixels > 0) {
        IQA_FUZZ_CHECK(pixels == static_cast<long long>(width) * height);
        IQA_FUZZ_CHECK(static_cast<size_t>(pixels) * 3 <= kCapacity);
        iqa_fuzz::Touch(buffer.data(), static_cast<size_t>(pixels) * 3);
    }
    std::vector<unsigned char> reduced(static_cast<size_t>(dstWidth) * dstHeight * 3);
    IQA::ReducingRowSink sink(reduced.data(), dstWidth, dstHeight, buffer.data());
    int w = -1, h = -1;
    iqa_fuzz::Logged().clear();
    const long long streamed =
        IQA::DecodeJpegFile(iqa_fuzz::ScratchPath().c_str(), kCapacity, sink, &w, &h);
    IQA_FUZZ_CHECK(iqa_fuzz::Logged() == whole);
    IQA_FUZZ_CHECK(streamed == pixels);
    if (streamed > 0 && sink.reduced()) {
        std::vector<unsigned char> expected(reduced.size());
        IQA::IqaProcessData().JpegDecoder(iqa_fuzz::ScratchPath().c_str(), buffer.data(), kCapacity,
                                          &width, &height);
        iqa_ref::DownScale(buffer.data(), width, height, expected.data(), dstWidth, dstHeight);
        IQA_FUZZ_CHECK(reduced == expected);
    }
    return 0;
}
