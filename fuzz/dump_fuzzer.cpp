// The dump: any file bytes as the photo, any descriptor size. The file must end up either
// unchanged, or exactly the specified record inserted at the start of its last record, with
// every byte before that offset untouched.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>

#include "FuzzSupport.h"
#include "IqaUpLoad.h"

namespace {

uint32_t Le32(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

// Where a whole trailer's last record starts, or 0 when the file has none.
size_t InsertionOffset(const std::vector<uint8_t>& file) {
    const int64_t length = static_cast<int64_t>(file.size());
    if (length < 24) {
        return 0;
    }
    const int64_t header = length - 24 - Le32(file, file.size() - 24) - 12;
    if (header < 0) {
        return 0;
    }
    const int64_t offset = header - Le32(file, static_cast<size_t>(header));
    return offset >= 1 ? static_cast<size_t>(offset) : 0;
}

}  // namespace

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
    iqa_fuzz::WriteScratch(file.data(), file.size());
    IQA::IqaUpLoad().SaveCustomBuffer(iqa_fuzz::ScratchPath(), custom.data(), &descriptor);
    const std::vector<uint8_t> after = iqa_fuzz::ReadScratch();

    const size_t offset = InsertionOffset(file);
    if (offset == 0 || customSize < 0) {
        IQA_FUZZ_CHECK(after == file);
        return 0;
    }
    std::vector<uint8_t> expected(file.begin(), file.begin() + static_cast<long>(offset));
    expected.insert(expected.end(), custom.begin(), custom.end());
    const auto* raw = reinterpret_cast<const uint8_t*>(&descriptor);
    expected.insert(expected.end(), raw, raw + sizeof(descriptor));
    const uint32_t length = static_cast<uint32_t>(customSize) + 120;
    for (int i = 0; i < 4; ++i) {
        expected.push_back(static_cast<uint8_t>(length >> (8 * i)));
    }
    char head[8] = {};
    strncpy(head, descriptor.algoname, 7);
    expected.insert(expected.end(), head, head + 8);
    expected.insert(expected.end(), file.begin() + static_cast<long>(offset), file.end());
    IQA_FUZZ_CHECK(after == expected);
    return 0;
}
