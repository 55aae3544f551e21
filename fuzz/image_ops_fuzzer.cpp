// Box reduction and NV12 conversion over buffers of exactly the size their arguments describe,
// with the reduction compared against the plain reference loop.
#include <fuzzer/FuzzedDataProvider.h>

#include "BoxReduce.h"
#include "FuzzSupport.h"
#include "IqaProcessData.h"
#include "Nv12.h"
#include "ReducingRowSink.h"
#include "reference/ReferenceKernels.h"

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

    // The same reduction fed row by row, as a JPEG decode feeds it: in runs of any length, rows
    // cut to any width the sink allows (a crop), and after its region only the last row.
    if (dstWidth > 0 && dstHeight > 0 && srcWidth > 0 && srcRows > 0 && work <= (1 << 18)) {
        const size_t dstBytes = static_cast<size_t>(dstWidth) * dstHeight * 3;
        std::vector<uint8_t> streamed(dstBytes), plain(dstBytes), buffer(srcBytes);
        IQA::ReducingRowSink sink(streamed.data(), dstWidth, dstHeight, buffer.data());
        const IQA::RowRegion region =
            sink.Plan(static_cast<uint32_t>(srcWidth), static_cast<uint32_t>(srcRows));
        IQA_FUZZ_CHECK(region.columns <= static_cast<uint32_t>(srcWidth) &&
                       region.rows <= static_cast<uint32_t>(srcRows));
        const uint32_t rowPixels =
            input.ConsumeIntegralInRange<uint32_t>(region.columns, static_cast<uint32_t>(srcWidth));
        sink.Begin(rowPixels);
        const size_t rowBytes = static_cast<size_t>(srcWidth) * 3;
        unsigned char* rows[16];
        const auto feed = [&](uint32_t first, uint32_t end) {
            while (first < end) {
                const uint32_t want =
                    std::min<uint32_t>(input.ConsumeIntegralInRange<uint32_t>(1, 16), end - first);
                const uint32_t placed = sink.Place(first, want, rows);
                IQA_FUZZ_CHECK(placed >= 1 && placed <= want);
                for (uint32_t i = 0; i < placed; ++i) {
                    std::copy_n(src.data() + rowBytes * (first + i), size_t{rowPixels} * 3,
                                rows[i]);
                }
                sink.Filled(first, placed);
                first += placed;
            }
        };
        feed(0, region.rows);
        sink.End();
        feed(std::max<uint32_t>(region.rows, static_cast<uint32_t>(srcRows) - 1),
             static_cast<uint32_t>(srcRows));
        if (sink.reduced()) {
            iqa_ref::DownScale(src.data(), srcWidth, srcRows, plain.data(), dstWidth, dstHeight);
            IQA_FUZZ_CHECK(streamed == plain);
        } else {
            IQA_FUZZ_CHECK(rowPixels == static_cast<uint32_t>(srcWidth) && buffer == src);
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
