// The custom-buffer dump's exact file contents, the files it must leave alone, and the
// big-data record handed to the service.
#include <gtest/gtest.h>

#include <sys/file.h>

#include <algorithm>
#include <cstring>

#include "IqaUpLoad.h"
#include "McsRecordingService.h"
#include "common/ByteSource.h"
#include "common/FileCalls.h"
#include "common/LittleEndian.h"
#include "tests/reference/ReferenceDump.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestFiles.h"
#include "tools/files/CameraFiles.h"

using iqa_test::Bytes;

namespace {

Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& p : parts) {
        all.insert(all.end(), p.begin(), p.end());
    }
    return all;
}

IQA::ImageDumpExpand Descriptor(int32_t size, const char* name) {
    IQA::ImageDumpExpand d = {4, 2, 4, size, 1, "", {}};
    std::strncpy(d.algoname, name, sizeof(d.algoname) - 1);
    return d;
}

class Dump : public ::testing::Test {
  protected:
    void Save(const std::string& name, const Bytes& buffer, IQA::ImageDumpExpand d) {
        IQA::IqaUpLoad().SaveCustomBuffer(dir.File(name), buffer.data(), &d);
    }

    iqa_test::TempDir dir;
    iqa_test::LogCapture log;
    const Bytes image = iqa_test::RandomBytes(300, 1);
    const Bytes payload = iqa_test::RandomBytes(50, 2);
    const Bytes other = iqa_test::RandomBytes(17, 3);
};

TEST_F(Dump, CustomBufferLargerThanOneBoundedCopy) {
    // More than the secure library copies in one call: the record must still hold every byte.
    const size_t size = (size_t{256} << 20) + 4099;
    Bytes big(size);
    for (size_t i = 0; i < size; ++i) {
        big[i] = static_cast<unsigned char>(i * 2654435761u >> 24);
    }
    const Bytes trailer = iqa_tools::Trailer({{"CAMREC", payload}}, other);
    iqa_test::WriteFile(dir.File("big.jpg"), Concat({image, trailer}));
    Save("big.jpg", big, Descriptor(static_cast<int32_t>(size), "Iqa_comparessim"));
    const Bytes after = iqa_test::ReadFile(dir.File("big.jpg"));
    ASSERT_EQ(image.size() + size + 132 + trailer.size(), after.size());
    EXPECT_TRUE(
        std::equal(big.begin(), big.end(), after.begin() + static_cast<long>(image.size())));
    EXPECT_EQ((std::vector<std::string>{
                  "[SaveCustomBuffer]:Resolved path:" + dir.File("big.jpg") + " ",
                  "[SaveCustomBuffer]:save custombuffer in " + dir.File("big.jpg") + "."}),
              log.Lines());  // no refused copy on the way
}

// A JPEG of width x height whose APP1 segment holds a whole second JPEG (with its own EOI), and
// with fill bytes before the marker that follows.
Bytes WithExifThumbnail(const Bytes& jpeg) {
    const Bytes inner = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(8 * 8 * 3, 9), 8, 8, 3, 80);
    Bytes segment = {0xFF, 0xE1, 0, 0, 'E', 'x', 'i', 'f', 0, 0};
    segment.insert(segment.end(), inner.begin(), inner.end());
    segment[2] = static_cast<unsigned char>((segment.size() - 2) >> 8);
    segment[3] = static_cast<unsigned char>(segment.size() - 2);
    return Concat({{0xFF, 0xD8}, segment, {0xFF, 0xFF}, Bytes(jpeg.begin() + 2, jpeg.end())});
}

// The byte-order mark of the photo's multi-picture index (little-endian), where its offsets start.
unsigned char* IndexMark(Bytes& photo) {
    const char mark[] = "MPF";
    return &*std::search(photo.begin(), photo.end(), mark, mark + 4) + 4;
}

// The index's entry for the photo's second image: its size, then its offset from the mark, as
// 32-bit little-endian fields.
unsigned char* SecondEntry(Bytes& photo) {
    return IndexMark(photo) + iqa_tools::kPictureEntriesAt + 16 + 4;
}

// A two-image index whose first IFD is its last two bytes: a count of no tags, just inside.
Bytes WithEmptyFirstIfd(Bytes photo) {
    IQA::StoreLE32(IndexMark(photo) + 4, iqa_tools::kPictureEntriesAt + 2 * 16 - 2);
    return photo;
}

Bytes AddToEntry(Bytes photo, int field, uint32_t add) {
    unsigned char* entry = SecondEntry(photo) + 4 * field;
    IQA::StoreLE32(entry, IQA::LoadLE32(entry) + add);
    return photo;
}

TEST_F(Dump, WritesOnlyIntoAWholeTrailer) {
    const size_t descriptors = iqa_test::OpenDescriptors();
    const Bytes rgb = iqa_test::RandomBytes(40 * 24 * 3, 6);
    const auto jpeg = [&](const iqa_tools::JpegOptions& o) {
        return iqa_tools::EncodeJpeg(rgb, 40, 24, 3, 85, o);
    };
    const Bytes record(70000, 1);  // a length of 64 KiB or more: all four bytes count
    const Bytes trailer = iqa_tools::Trailer({{"CAMREC", record}}, other);
    const Bytes photo = Concat({jpeg({}), trailer});
    // Photos as phones write them: further images behind the primary, indexed or not.
    const Bytes gain = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(10 * 6, 7), 10, 6, 1, 80);
    const Bytes depth = iqa_tools::EncodeJpeg(iqa_test::RandomBytes(8 * 8, 8), 8, 8, 1, 80);
    const Bytes hdr = iqa_tools::MultiPictureJpeg(jpeg({}), {{0, gain}});
    const Bytes sloppy = iqa_tools::MultiPictureJpeg(
        jpeg({true, 0, false}), {{0x020002, depth}, {0, gain}}, {true, 70, true});
    Bytes intoGainMap = Concat({hdr, trailer});  // the record's length reaches into the gain map
    IQA::StoreLE32(&intoGainMap[hdr.size() + record.size()], record.size() + 9);
    Bytes flipped = photo;  // the record's length points into the JPEG's entropy-coded data
    flipped[flipped.size() - 24 - other.size() - 12] ^= 0x40;
    Bytes torn = photo;  // a record half written over the old tail, the rest still zero
    std::fill(torn.end() - 60, torn.end(), 0);
    Bytes huge = Concat({image, trailer});
    std::memset(&huge[huge.size() - 24], 0xFF, 4);  // A = 2^32 - 1: no wrap into the file
    Bytes pastStart = Concat({image, trailer});
    pastStart[image.size() + record.size() + 3] = 0x7F;  // payload length far past the start
    const Bytes noEnd(photo.begin(), photo.end() - static_cast<long>(trailer.size()) - 2);
    Bytes notTiff = hdr;  // the index's TIFF header carries another magic number than 42
    IndexMark(notTiff)[2] = 43;
    Bytes unmarked = hdr;  // magic 42 in little-endian order, but no byte-order mark before it
    IndexMark(unmarked)[0] = IndexMark(unmarked)[1] = 'X';

    enum Outcome { kWritten, kDamaged, kNoHeader, kSilent, kUnknown, kUnchanged };
    const struct {
        const char* name;
        Bytes bytes;
        Outcome outcome;
        const char* why = "";  // the reason an unknown image gets
    } cases[] = {
        {"hdr", Concat({hdr, trailer}), kWritten},
        {"big_endian_sloppy_primary", Concat({sloppy, trailer}), kWritten},
        {"appended_streams", Concat({jpeg({}), gain, depth, trailer}), kWritten},
        {"indexed_then_appended", Concat({hdr, depth, trailer}), kWritten},
        {"record_of_a_jpeg",
         Concat({jpeg({}), iqa_tools::Trailer({{"CAMJPG", gain}, {"CAMREC", record}}, other)}),
         kWritten},
        {"hdr_outside", Concat({AddToEntry(hdr, 0, 1 << 20), trailer}), kUnknown,
         "an image the index names lies outside the file"},
        {"hdr_one_past_the_end", Concat({AddToEntry(hdr, 0, trailer.size() + 1), trailer}),
         kUnknown, "an image the index names lies outside the file"},
        {"hdr_not_soi", Concat({AddToEntry(hdr, 1, 1), trailer}), kUnknown,
         "an image the index names does not start a JPEG stream"},
        {"hdr_in_primary", Concat({AddToEntry(hdr, 1, -100u), trailer}), kUnknown,
         "an image the index names does not lie behind the primary image"},
        {"hdr_empty_ifd", Concat({WithEmptyFirstIfd(hdr), trailer}), kUnknown,
         "the multi-picture index lists no images"},
        {"hdr_not_tiff", Concat({notTiff, trailer}), kUnknown,
         "the multi-picture index has no TIFF header"},
        {"hdr_unmarked", Concat({unmarked, trailer}), kUnknown,
         "the multi-picture index has no TIFF header"},
        {"hdr_torn", Concat({hdr, Bytes(trailer.begin(), trailer.end() - 60), Bytes(60, 0)}),
         kDamaged},
        {"hdr_into_gain_map", intoGainMap, kDamaged},
        {"hdr_gap", Concat({hdr, {1, 2, 3}, trailer}), kDamaged},
        {"hdr_no_trailer", hdr, kUnchanged},
        {"baseline", photo, kWritten},
        {"progressive", Concat({jpeg({true, 0, false}), trailer}), kWritten},
        {"restarts", Concat({jpeg({false, 1, true}), trailer}), kWritten},
        {"exif", Concat({WithExifThumbnail(jpeg({})), trailer}), kWritten},
        {"not_jpeg", Concat({image, trailer}), kWritten},  // the header checks alone
        {"flipped", flipped, kDamaged},
        {"torn", torn, kDamaged},
        {"zero_padded", Concat({photo, Bytes(115, 0)}), kDamaged},
        {"gap", Concat({jpeg({}), {1, 2, 3}, trailer}), kDamaged},
        {"no_eoi", Concat({noEnd, trailer}), kDamaged},
        {"short", Bytes(23, 1), kNoHeader},
        {"empty", {}, kNoHeader},
        {"past_start", pastStart, kSilent},
        {"start", trailer, kSilent},  // the last record would start at offset 0
        {"huge", huge, kSilent},
    };
    for (const auto& c : cases) {
        const std::string path = dir.File(std::string(c.name) + ".jpg");
        iqa_test::WriteFile(path, c.bytes);
        log.Clear();
        Save(std::string(c.name) + ".jpg", payload, Descriptor(50, "Iqa_comparessim"));
        const std::string said[] = {
            "[SaveCustomBuffer]:save custombuffer in " + path + ".",
            "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: damaged trailer, not written: " + path + ".",
            "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: Failed to read file header: " + path + ".",
            "",
            "[SaveCustomBuffer]:IqaUpLoad SaveBuffer: unknown image data, not written: " + path +
                " (" + c.why + ")."};
        std::vector<std::string> lines = {"[SaveCustomBuffer]:Resolved path:" + path + " "};
        if (c.outcome != kSilent && c.outcome != kUnchanged) {
            lines.push_back(said[c.outcome]);
        }
        if (c.outcome != kUnchanged) {
            EXPECT_EQ(lines, log.Lines()) << c.name;
        }
        const Bytes result = c.outcome == kWritten
                                 ? iqa_ref::WithRecord(c.bytes, c.bytes.size() - trailer.size(),
                                                       payload, Descriptor(50, "Iqa_comparessim"))
                                 : c.bytes;
        EXPECT_EQ(result, iqa_test::ReadFile(path)) << c.name;
        EXPECT_EQ(result,
                  iqa_ref::ExpectedDump(c.bytes, payload, Descriptor(50, "Iqa_comparessim")))
            << c.name << ": the fuzzers' reference disagrees";
    }

    // A second dump goes behind the first, still in front of the camera's own record.
    const Bytes once = iqa_test::ReadFile(dir.File("not_jpeg.jpg"));
    const Bytes second = iqa_test::RandomBytes(6, 5);
    Save("not_jpeg.jpg", second, Descriptor(6, "ab"));
    EXPECT_EQ(iqa_ref::WithRecord(once, image.size() + 50 + 132, second, Descriptor(6, "ab")),
              iqa_test::ReadFile(dir.File("not_jpeg.jpg")));

    // Another dump holds the photo for longer than a dump waits: this one gives up.
    const std::string held = dir.File("baseline.jpg");
    const Bytes before = iqa_test::ReadFile(held);
    {
        const IQA::ScopedFd holder(IQA::OpenRegularFile(held.c_str(), O_RDONLY));
        ASSERT_EQ(0, flock(holder.get(), LOCK_EX));
        log.Clear();
        Save("baseline.jpg", payload, Descriptor(50, "Iqa_comparessim"));
    }
    EXPECT_EQ("[SaveCustomBuffer]:IqaUpLoad SaveBuffer: " + held +
                  " is being written by another dump, not written.",
              log.Lines().back());
    EXPECT_EQ(ANDROID_LOG_ERROR, log.Entries().back().priority);
    EXPECT_EQ(before, iqa_test::ReadFile(held));

    log.Clear();
    IQA::IqaUpLoad().SaveCustomBuffer(dir.File("missing.jpg"), payload.data(), nullptr);
    EXPECT_EQ((std::vector<std::string>{"[SaveCustomBuffer]:Failed to resolve path."}),
              log.Lines());
    EXPECT_EQ(descriptors, iqa_test::OpenDescriptors()) << "a dump left a file open";
}

std::vector<size_t> gReads;  // the byte counts of the reads the hook saw

int CountReads(const IQA::FileCallInfo& info, size_t* count) {
    if (info.call == IQA::FileCall::kRead) {
        gReads.push_back(*count);
    }
    return 0;
}

// A trailer is walked from the end backwards, a JPEG's markers forwards: both cost one read per
// 64 KiB window; a request larger than half a window is read on its own.
TEST(FileSource, ReadsThroughOneWindowBothWays) {
    iqa_test::TempDir dir;
    const Bytes file = iqa_test::RandomBytes(200000, 7);
    iqa_test::WriteFile(dir.File("f"), file);
    const IQA::ScopedFd fd(IQA::OpenRegularFile(dir.File("f").c_str(), O_RDONLY));
    IQA::FileSource source(fd.get(), file.size());
    gReads.clear();
    IQA::SetFileCallHook(CountReads);
    unsigned char out[40000];
    const auto read = [&](uint64_t at, size_t n) {
        return source.Read(at, out, n) &&
               std::equal(out, out + n, file.begin() + static_cast<long>(at));
    };
    bool all = read(0, 0);          // nothing to read: no read
    all = all && read(199990, 10);  // the first read opens a window at its offset
    for (uint64_t at = 199000; at >= 1000; at -= 1000) {
        all = all && read(at, 12);  // backwards: windows that end just behind each request
    }
    // In the last window, a large request within it, and one past the end.
    all = all && read(0, 12) && read(100, 40000) && read(70000, 33000) && !read(199990, 11);
    all = all && read(130000, 30000);  // at most half a window: through a window of its own
    all = all && read(20000, 32768);   // exactly half a window, too
    IQA::SetFileCallHook(nullptr);
    EXPECT_TRUE(all);
    EXPECT_EQ((std::vector<size_t>{10, 65536, 65536, 65536, 65536, 33000, 65536, 65536}), gReads);

    // Both sources refuse exactly the reads that do not lie wholly inside the file.
    IQA::MemorySource memory(file.data(), file.size());
    for (IQA::ByteSource* s : std::vector<IQA::ByteSource*>{&memory, &source}) {
        EXPECT_EQ((std::vector<bool>{true, false, true, false, false}),
                  (std::vector<bool>{s->Read(199990, out, 10), s->Read(199990, out, 11),
                                     s->Read(200000, out, 0), s->Read(200001, out, 0),
                                     s->Read(~uint64_t{0}, out, 2)}));
    }
}

// The trailer's and the journal's integers: exactly their own bytes, lowest first, and nothing
// of the bytes beside them, neither written nor read (a read past them faults).
TEST(LittleEndian, StoresAndLoadsExactlyItsOwnBytes) {
    Bytes four(6, 0xAA), eight(10, 0xAA);
    IQA::StoreLE32(&four[1], 0x01020304u);
    IQA::StoreLE64(&eight[1], 0x0102030405060708u);
    EXPECT_EQ((Bytes{0xAA, 4, 3, 2, 1, 0xAA}), four);
    EXPECT_EQ((Bytes{0xAA, 8, 7, 6, 5, 4, 3, 2, 1, 0xAA}), eight);
    const iqa_test::AtPageEnd last4(Bytes(four.begin() + 1, four.end() - 1));
    const iqa_test::AtPageEnd last8(Bytes(eight.begin() + 1, eight.end() - 1));
    EXPECT_EQ(0x01020304u, IQA::LoadLE32(last4.data()));
    EXPECT_EQ(0x0102030405060708u, IQA::LoadLE64(last8.data()));
}

TEST(BigData, RecordFieldsAndService) {
    iqa_test::LogCapture log;
    MCS::RecordingService service;
    {
        MCS::ScopedService installed(&service);
        IQA::IqaUpLoad().UpLoadBigData("abcdefghijklmnopqrstuvwxyz0123", 1);
        IQA::IqaUpLoad().UpLoadBigData("", 0);
    }
    IQA::IqaUpLoad().UpLoadBigData("unsent", 0);  // no service: nothing sent, still logged

    // The name is cut to 24 characters and zero-filled; the timestamp is wall-clock milliseconds.
    const auto events = service.Events();
    ASSERT_EQ(2u, events.size());
    const auto& [first, second] = std::tie(events[0].record, events[1].record);
    EXPECT_EQ(
        (std::vector<int>{8, 1, 8, 0}),
        (std::vector<int>{events[0].eventId, first.anomType, events[1].eventId, second.anomType}));
    EXPECT_EQ(std::string("abcdefghijklmnopqrstuvwx"), first.jpegName);
    EXPECT_EQ(Bytes(25, 0), Bytes(second.jpegName, second.jpegName + 25));
    EXPECT_GT(int64_t{first.timestamp}, 1600000000000LL);
    EXPECT_EQ(
        (std::vector<std::string>{
            "[UpLoadBigData]:upload bigdata of abcdefghijklmnopqrstuvwxyz0123.",
            "[UpLoadBigData]:upload bigdata of .", "[UpLoadBigData]:upload bigdata of unsent."}),
        log.Lines());
}

}  // namespace
