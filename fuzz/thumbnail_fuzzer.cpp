// Thumbnail decoder: any file bytes, any capacity. The destination is exactly the capacity, so
// any write past it is caught.
#include <fuzzer/FuzzedDataProvider.h>

#include "IqaProcessData.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const size_t capacity = input.ConsumeIntegralInRange<size_t>(0, 1 << 20);
    const std::vector<uint8_t> file = input.ConsumeRemainingBytes<uint8_t>();
    iqa_fuzz::WriteScratch(file);
    std::vector<unsigned char> buffer(capacity);
    int width = -1, height = -1;
    const long long pixels = IQA::IqaProcessData().ThumbnailDecoder(
        iqa_fuzz::ScratchPath().c_str(), buffer.data(), capacity, &width, &height);
    if (pixels > 0) {
        IQA_FUZZ_CHECK(pixels == static_cast<long long>(width) * height);
        IQA_FUZZ_CHECK(static_cast<size_t>(pixels) * 4 <= capacity);
        iqa_fuzz::Touch(buffer.data(), static_cast<size_t>(pixels) * 3);
    }
    return 0;
}
