// Reference trailer logic: one pass over bytes in memory, straight from the format.
#include "tests/reference/ReferenceDump.h"

#include <cstdint>
#include <cstring>

namespace iqa_ref {

namespace {

uint32_t Le32(const Bytes& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | static_cast<uint32_t>(b[at + 3]) << 24;
}

// Past the entropy-coded data starting at i: the offset of the marker that ends it.
size_t ScanEnd(const Bytes& f, size_t i) {
    for (; i + 1 < f.size(); ++i) {
        if (f[i] != 0xFF) {
            continue;
        }
        size_t j = i + 1;
        while (j < f.size() && f[j] == 0xFF) {
            ++j;
        }
        if (j < f.size() && f[j] != 0x00 && (f[j] < 0xD0 || f[j] > 0xD7)) {
            return i;
        }
        i = j;
    }
    return 0;
}

}  // namespace

size_t JpegEnd(const Bytes& f) {
    if (f.size() < 2 || f[0] != 0xFF || f[1] != 0xD8) {
        return 0;
    }
    size_t i = 2;
    while (i < f.size()) {
        while (i < f.size() && f[i] != 0xFF) {
            ++i;  // stray bytes before a marker
        }
        while (i < f.size() && f[i] == 0xFF) {
            ++i;
        }
        if (i >= f.size()) {
            return 0;
        }
        const unsigned char code = f[i++];
        if (code == 0xD9) {
            return i;
        }
        if (code == 0xD8 || code == 0x00) {
            return 0;
        }
        if (code == 0x01 || (code >= 0xD0 && code <= 0xD7)) {
            continue;
        }
        if (i + 2 > f.size() || (f[i] << 8 | f[i + 1]) < 2) {
            return 0;
        }
        i += static_cast<size_t>(f[i] << 8 | f[i + 1]);
        if (i > f.size()) {
            return 0;
        }
        if (code == 0xDA && (i = ScanEnd(f, i)) == 0) {
            return 0;
        }
    }
    return 0;
}

std::vector<Record> RecordsIfWhole(const Bytes& f, size_t imageEnd) {
    if (imageEnd == 0 || f.size() < imageEnd + 36) {
        return {};
    }
    int64_t at = static_cast<int64_t>(f.size()) - 24 - Le32(f, f.size() - 24);
    std::vector<Record> records;
    while (at >= static_cast<int64_t>(imageEnd) + 12) {
        const size_t header = static_cast<size_t>(at) - 12;
        bool zero = true;
        for (size_t k = 0; k < 12; ++k) {
            zero = zero && f[header + k] == 0;
        }
        at = static_cast<int64_t>(header) - Le32(f, header);
        if (zero || at < static_cast<int64_t>(imageEnd)) {
            return {};
        }
        records.push_back({static_cast<size_t>(at), header - static_cast<size_t>(at)});
    }
    return at == static_cast<int64_t>(imageEnd) ? records : std::vector<Record>();
}

size_t LastRecordIfWhole(const Bytes& f, size_t imageEnd) {
    const std::vector<Record> records = RecordsIfWhole(f, imageEnd);
    return records.empty() ? 0 : records.front().offset;
}

Bytes ExpectedDump(const Bytes& file, const Bytes& custom, const IQA::ImageDumpExpand& d) {
    if (file.size() < 24 || d.size < 0) {
        return file;
    }
    const int64_t header = static_cast<int64_t>(file.size()) - 36 - Le32(file, file.size() - 24);
    const int64_t offset = header < 0 ? 0 : header - Le32(file, static_cast<size_t>(header));
    const bool jpeg = file[0] == 0xFF && file[1] == 0xD8;
    if (offset < 1 ||
        (jpeg && LastRecordIfWhole(file, JpegEnd(file)) != static_cast<size_t>(offset))) {
        return file;
    }
    return WithRecord(file, static_cast<size_t>(offset), custom, d);
}

Bytes WithRecord(const Bytes& file, size_t offset, const Bytes& custom,
                 const IQA::ImageDumpExpand& descriptor) {
    Bytes out(file.begin(), file.begin() + static_cast<long>(offset));
    out.insert(out.end(), custom.begin(), custom.end());
    const auto* raw = reinterpret_cast<const unsigned char*>(&descriptor);
    out.insert(out.end(), raw, raw + sizeof(descriptor));
    const uint32_t length = static_cast<uint32_t>(custom.size() + sizeof(descriptor));
    for (int i = 0; i < 4; ++i) {
        out.push_back(static_cast<unsigned char>(length >> (8 * i)));
    }
    char head[8] = {};
    std::memcpy(head, descriptor.algoname, strnlen(descriptor.algoname, 7));
    out.insert(out.end(), head, head + 8);
    out.insert(out.end(), file.begin() + static_cast<long>(offset), file.end());
    return out;
}

}  // namespace iqa_ref
