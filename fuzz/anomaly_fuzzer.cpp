// Black/green screen detection: any width, height and stride over a frame exactly as large as
// the detector's indexing reaches.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>

#include "IqaAnomDetect.h"
#include "McsRecordingService.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const unsigned width = input.ConsumeIntegralInRange<unsigned>(0, 300);
    const unsigned height = input.ConsumeIntegralInRange<unsigned>(0, 300);
    const int stride = input.ConsumeIntegralInRange<int>(-8, 320);
    srand(input.ConsumeIntegral<unsigned>());
    if (stride < static_cast<int>(width)) {
        // A frame whose rows are shorter than its width has no defined layout; the detector
        // may only refuse it.
        IQA::IqaAnomDetect().AnomDetect(nullptr, width, height, stride, "refused");
        return 0;
    }
    const size_t even = width & ~1u;
    const size_t bytes = static_cast<size_t>(stride) * height + even * ((height + 1) / 2) + 2;
    std::vector<uint8_t> frame = input.ConsumeBytes<uint8_t>(bytes);
    frame.resize(bytes, 0);
    MCS::RecordingService service;
    MCS::ScopedService installed(&service);
    IQA::IqaAnomDetect().AnomDetect(frame.data(), width, height, stride, "fuzz.jpg");
    IQA_FUZZ_CHECK(service.Events().size() <= 1);
    return 0;
}
