// The dump: any file bytes as the photo, any descriptor size. The file must end up exactly as
// the reference says: unchanged, or the record inserted at the start of its last record with
// every byte before that offset untouched.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>

#include "IqaUpLoad.h"
#include "fuzz/FuzzSupport.h"
#include "tests/reference/ReferenceDump.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    iqa_fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    const int32_t customSize = input.ConsumeIntegralInRange<int32_t>(-8, 2048);
    const std::vector<uint8_t> custom =
        input.ConsumeBytes<uint8_t>(customSize > 0 ? static_cast<size_t>(customSize) : 0);
    IQA::ImageDumpExpand descriptor = {};
    descriptor.size = customSize;
    const std::string name = input.ConsumeRandomLengthString(29);
    std::memcpy(descriptor.algoname, name.c_str(), name.size());
    const std::vector<uint8_t> file = input.ConsumeRemainingBytes<uint8_t>();
    if (customSize > 0 && custom.size() < static_cast<size_t>(customSize)) {
        return 0;  // the caller owns size bytes; the fuzzer cannot offer fewer
    }
    iqa_fuzz::WriteScratch(file);
    IQA::IqaUpLoad().SaveCustomBuffer(iqa_fuzz::ScratchPath(), custom.data(), &descriptor);
    IQA_FUZZ_CHECK(iqa_fuzz::ReadScratch() == iqa_ref::ExpectedDump(file, custom, descriptor));
    return 0;
}
