// The multi-picture index: its TIFF header, its first IFD and the MP entries tag 0xB002 points at.
#include "common/MultiPicture.h"

#include <cstdio>
#include <utility>

namespace IQA {

namespace {

constexpr uint64_t kSignatureSize = 4;  // "MPF\0"; the TIFF structure and its offsets start after
constexpr uint16_t kTiffMagic = 42;
constexpr uint16_t kEntriesTag = 0xB002;
constexpr uint16_t kUndefinedType = 7;
constexpr size_t kIfdEntrySize = 12;
constexpr size_t kPictureEntrySize = 16;

// The TIFF structure in memory, read in the byte order its mark gives; every read is bounded.
class Tiff {
  public:
    explicit Tiff(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {
        bigEndian_ = Marked('M');
    }
    bool HasMark() const { return Marked('I') || Marked('M'); }
    bool Has(uint64_t at, uint64_t count) const {
        return at <= bytes_.size() && count <= bytes_.size() - at;
    }
    // `count` bytes at `at` as an unsigned number; the caller has checked Has(at, count).
    uint32_t Load(uint64_t at, int count) const {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            const unsigned char byte =
                bytes_[at + static_cast<uint64_t>(bigEndian_ ? i : count - 1 - i)];
            value = value << 8 | byte;
        }
        return value;
    }

  private:
    bool Marked(char letter) const {
        return bytes_.size() >= 2 && bytes_[0] == letter && bytes_[1] == letter;
    }

    std::vector<unsigned char> bytes_;
    bool bigEndian_ = false;
};

// Where the MP entries lie in the TIFF structure and how many bytes they take; null, or why not.
const char* FindEntries(const Tiff& tiff, uint32_t* at, uint32_t* bytes) {
    if (!tiff.HasMark() || !tiff.Has(0, 8) || tiff.Load(2, 2) != kTiffMagic) {
        return "the multi-picture index has no TIFF header";
    }
    const uint32_t ifd = tiff.Load(4, 4);
    if (!tiff.Has(ifd, 2)) {
        return "the multi-picture index points outside its segment";
    }
    const uint32_t count = tiff.Load(ifd, 2);
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t entry = uint64_t{ifd} + 2 + kIfdEntrySize * i;
        if (!tiff.Has(entry, kIfdEntrySize)) {
            return "the multi-picture index points outside its segment";
        }
        if (tiff.Load(entry, 2) == kEntriesTag) {
            *bytes = tiff.Load(entry + 4, 4);
            *at = tiff.Load(entry + 8, 4);
            const bool fits = tiff.Load(entry + 2, 2) == kUndefinedType && *bytes > 0 &&
                              *bytes % kPictureEntrySize == 0 && tiff.Has(*at, *bytes);
            return fits ? nullptr : "the multi-picture index's image list is malformed";
        }
    }
    return "the multi-picture index lists no images";
}

}  // namespace

const char* ReadPictureIndex(ByteSource& source, uint64_t at, uint64_t length,
                             std::vector<PictureEntry>* entries) {
    entries->clear();
    if (length < kSignatureSize) {
        return "the multi-picture index has no TIFF header";
    }
    std::vector<unsigned char> bytes(static_cast<size_t>(length - kSignatureSize));
    if (!source.Read(at + kSignatureSize, bytes.data(), bytes.size())) {
        return "the multi-picture index cannot be read";
    }
    const Tiff tiff(std::move(bytes));
    uint32_t listAt = 0, listBytes = 0;
    if (const char* problem = FindEntries(tiff, &listAt, &listBytes)) {
        return problem;
    }
    const uint64_t base = at + kSignatureSize;  // offsets count from the byte-order mark
    for (uint64_t e = listAt; e < uint64_t{listAt} + listBytes; e += kPictureEntrySize) {
        const uint32_t offset = tiff.Load(e + 8, 4);
        entries->push_back({tiff.Load(e, 4), tiff.Load(e + 4, 4), offset == 0 ? 0 : base + offset});
    }
    return nullptr;
}

std::string PictureKind(uint32_t attribute) {
    switch (attribute & 0xFFFFFF) {  // the top byte holds flags and the image's data format
        case 0x030000:
            return "primary";
        case 0x010001:
        case 0x010002:
            return "large thumbnail";
        case 0x020001:
            return "panorama frame";
        case 0x020002:
            return "disparity or depth";
        case 0x020003:
            return "multi-angle frame";
        case 0x000000:
            return "gain map or undefined";
        default:
            char kind[32];
            snprintf(kind, sizeof(kind), "type 0x%06X", attribute & 0xFFFFFF);
            return kind;
    }
}

}  // namespace IQA
