// Box reduction and NV12 conversion over buffers of exactly the size their arguments describe,
// with the reduction compared against the plain reference loop.
#include <fuzzer/FuzzedDataProvider.h>

#include "IqaProcessData.h"
#include "fuzz/FuzzSupport.h"
#include "process/BoxReduce.h"
#include "process/Nv12.h"
#include "tests/reference/ReferenceKernels.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int srcWidth = input.ConsumeIntegralInRange<int>(-4, 3000);
    const int srcRows = input.ConsumeIntegralInRange<int>(0, 64);
    const int dstWidth = input.ConsumeIntegralInRange<int>(-2, 300);
    const int dstHeight = input.ConsumeIntegralInRange<int>(-2, 64);
    const int nvWidth = input.ConsumeIntegralInRange<int>(-1, 96);
    const int nvHeight = input.ConsumeIntegralInRange<int>(-1, 96);
    const size_t srcBytes = srcWidth > 0 ? static_cast<size_t>(srcWidth) * srcRows * 3 : 0;
    std::vector<uint8_t> src = input.ConsumeBytes<uint8_t>(srcBytes);
    src.resize(srcBytes);
    IQA::IqaProcessData stage;

    // The reference visits every byte of every block: keep its work bounded.
    const int64_t k = dstWidth > 0 ? srcWidth / dstWidth : 0;
    const int64_t work = k * k * dstWidth * dstHeight;
    if (dstWidth > 0 && dstHeight > 0 && srcWidth != 0 && work <= (1 << 18)) {
        const size_t dstBytes = static_cast<size_t>(dstWidth) * dstHeight * 3;
        std::vector<uint8_t> fast(dstBytes), plain(dstBytes);
        IQA::BoxReduce(src.data(), srcWidth, srcRows, fast.data(), dstWidth, dstHeight);
        iqa_ref::DownScale(src.data(), srcWidth, srcRows, plain.data(), dstWidth, dstHeight);
        IQA_FUZZ_CHECK(fast == plain);
        // The exported form reads k x dstHeight rows: only offer it sources that have them.
        if (k < 1 || k * dstHeight <= srcRows) {
            stage.DownScale(src.data(), srcWidth, fast.data(), dstWidth, dstHeight);
            IQA_FUZZ_CHECK(fast == plain);
        }
    }

    const size_t rgbBytes =
        nvWidth > 0 && nvHeight > 0 ? static_cast<size_t>(nvWidth) * nvHeight * 3 : 0;
    std::vector<uint8_t> rgb = input.ConsumeBytes<uint8_t>(rgbBytes);
    rgb.resize(rgbBytes);
    const size_t nvBytes = rgbBytes > 0 ? static_cast<size_t>(IQA::Nv12Size(nvWidth, nvHeight)) : 0;
    std::vector<uint8_t> nv12(nvBytes);
    stage.ConvertRGBToNV12(rgb.data(), nvWidth, nvHeight, nv12.data());
    if (nvBytes > 0) {
        IQA_FUZZ_CHECK(nv12 == iqa_ref::Nv12(rgb.data(), nvWidth, nvHeight));
    }
    return 0;
}
