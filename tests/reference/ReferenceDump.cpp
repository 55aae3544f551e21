// Reference photo logic: plain passes over bytes in memory, straight from the formats.
#include "tests/reference/ReferenceDump.h"

#include <algorithm>
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

// Where the JPEG at `start` ends, and its first APP2 segment whose payload starts "MPF\0".
size_t WalkJpeg(const Bytes& f, size_t start, size_t* indexAt, size_t* indexLength) {
    if (start + 2 > f.size() || f[start] != 0xFF || f[start + 1] != 0xD8) {
        return 0;
    }
    size_t i = start + 2;
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
        const size_t length = static_cast<size_t>(f[i] << 8 | f[i + 1]);
        if (i + length > f.size()) {
            return 0;
        }
        if (code == 0xE2 && *indexAt == 0 && length >= 6 &&
            std::memcmp(&f[i + 2], "MPF\0", 4) == 0) {
            *indexAt = i + 2;
            *indexLength = length - 2;
        }
        i += length;
        if (code == 0xDA && (i = ScanEnd(f, i)) == 0) {
            return 0;
        }
    }
    return 0;
}

// A field of the index's TIFF structure in its byte order.
uint32_t Field(const Bytes& f, size_t at, int bytes, bool big) {
    uint32_t value = 0;
    for (int k = 0; k < bytes; ++k) {
        value = value << 8 | f[at + static_cast<size_t>(big ? k : bytes - 1 - k)];
    }
    return value;
}

// The end of the last image the index at `at` (length bytes from "MPF\0") names, each checked
// against the file; 0 when the index or an image is not as it must be.
size_t IndexedEnd(const Bytes& f, size_t at, size_t length, size_t primaryEnd) {
    const size_t t = at + 4;  // the byte-order mark: offsets count from here
    const uint64_t room = length - 4;
    const auto has = [&](uint64_t offset, uint64_t count) { return offset + count <= room; };
    const bool big = has(0, 2) && f[t] == 'M' && f[t + 1] == 'M';
    if (!has(0, 8) || !(big || (f[t] == 'I' && f[t + 1] == 'I')) || Field(f, t + 2, 2, big) != 42) {
        return 0;
    }
    const uint64_t ifd = Field(f, t + 4, 4, big);
    if (!has(ifd, 2)) {
        return 0;
    }
    for (uint64_t k = 0; k < Field(f, t + ifd, 2, big); ++k) {
        const uint64_t e = ifd + 2 + 12 * k;
        if (!has(e, 12)) {
            return 0;
        }
        if (Field(f, t + e, 2, big) != 0xB002) {
            continue;
        }
        const uint64_t count = Field(f, t + e + 4, 4, big), list = Field(f, t + e + 8, 4, big);
        if (Field(f, t + e + 2, 2, big) != 7 || count == 0 || count % 16 != 0 ||
            !has(list, count) || Field(f, t + list + 8, 4, big) != 0) {
            return 0;
        }
        size_t end = primaryEnd;
        for (uint64_t n = list + 16; n < list + count; n += 16) {
            const uint64_t size = Field(f, t + n + 4, 4, big), offset = Field(f, t + n + 8, 4, big);
            const uint64_t image = offset == 0 ? 0 : t + offset;
            if (image < primaryEnd || image + size > f.size() || image + 2 > f.size() ||
                f[image] != 0xFF || f[image + 1] != 0xD8) {
                return 0;
            }
            end = std::max(end, static_cast<size_t>(image + size));
        }
        return end;
    }
    return 0;
}

}  // namespace

size_t JpegEnd(const Bytes& f, size_t start) {
    size_t at = 0, length = 0;
    return WalkJpeg(f, start, &at, &length);
}

std::vector<size_t> ImageEnds(const Bytes& f) {
    size_t at = 0, length = 0;
    size_t end = WalkJpeg(f, 0, &at, &length);
    if (end != 0 && at != 0) {
        end = IndexedEnd(f, at, length, end);
    }
    std::vector<size_t> ends;
    for (; end != 0; end = JpegEnd(f, end)) {
        ends.push_back(end);
    }
    return ends;
}

std::vector<Record> RecordsIfWhole(const Bytes& f, const std::vector<size_t>& imageEnds) {
    if (imageEnds.empty() || f.size() < imageEnds.front() + 36) {
        return {};
    }
    const int64_t floor = static_cast<int64_t>(imageEnds.front());
    const auto closes = [&](int64_t at) {
        return std::find(imageEnds.begin(), imageEnds.end(), static_cast<size_t>(at)) !=
               imageEnds.end();
    };
    int64_t at = static_cast<int64_t>(f.size()) - 24 - Le32(f, f.size() - 24);
    std::vector<Record> records;
    while (!closes(at)) {
        if (at < floor + 12) {
            return {};
        }
        const size_t header = static_cast<size_t>(at) - 12;
        bool zero = true;
        for (size_t k = 0; k < 12; ++k) {
            zero = zero && f[header + k] == 0;
        }
        at = static_cast<int64_t>(header) - Le32(f, header);
        if (zero || at < floor) {
            return {};
        }
        records.push_back({static_cast<size_t>(at), header - static_cast<size_t>(at)});
    }
    return records;
}

size_t LastRecordIfWhole(const Bytes& f) {
    const std::vector<Record> records = RecordsIfWhole(f, ImageEnds(f));
    return records.empty() ? 0 : records.front().offset;
}

Bytes ExpectedDump(const Bytes& file, const Bytes& custom, const IQA::ImageDumpExpand& d) {
    if (file.size() < 24 || d.size < 0) {
        return file;
    }
    const int64_t header = static_cast<int64_t>(file.size()) - 36 - Le32(file, file.size() - 24);
    const int64_t offset = header < 0 ? 0 : header - Le32(file, static_cast<size_t>(header));
    const bool jpeg = file[0] == 0xFF && file[1] == 0xD8;
    if (offset < 1 || (jpeg && LastRecordIfWhole(file) != static_cast<size_t>(offset))) {
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
