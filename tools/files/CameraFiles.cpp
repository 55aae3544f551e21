// Writers and readers of the camera's thumbnail, JPEG and trailer formats.
#include "tools/files/CameraFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include <jpeglib.h>

#include "common/FileCalls.h"
#include "common/LittleEndian.h"
#include "common/MultiPicture.h"

namespace iqa_tools {

namespace {

struct JumpingErrors {
    jpeg_error_mgr base;
    jmp_buf jump;
};

[[noreturn]] void JumpOut(j_common_ptr info) {
    longjmp(reinterpret_cast<JumpingErrors*>(info->err)->jump, 1);
}

void Silence(j_common_ptr) {}

}  // namespace

bool ReadWholeFile(const std::string& path, Bytes* bytes, std::string* why) {
    const IQA::ScopedFd fd(IQA::OpenRegularFile(path.c_str(), O_RDONLY));
    const int64_t length = fd.get() < 0 ? -1 : IQA::FileLength(fd.get());
    if (length >= 0) {
        bytes->resize(static_cast<size_t>(length));
        if (IQA::ReadFully(fd.get(), 0, bytes->data(), bytes->size())) {
            return true;
        }
    }
    if (why != nullptr) {
        *why = FileError();
    }
    return false;
}

std::string FileError() {
    return errno == EINVAL ? "not a regular file" : strerror(errno);
}

bool WriteWholeFile(const std::string& path, const Bytes& bytes) {
    const IQA::ScopedFd fd(IQA::CreateFile(path.c_str()));
    return fd.get() >= 0 && IQA::WriteFully(fd.get(), 0, bytes.data(), bytes.size());
}

bool PublishFile(const std::string& path, const Bytes& bytes, bool replace) {
    const std::string temporary = path + ".partial";
    if (!WriteWholeFile(temporary, bytes)) {
        return false;
    }
    const bool published = replace ? rename(temporary.c_str(), path.c_str()) == 0
                                   : link(temporary.c_str(), path.c_str()) == 0;
    const int error = errno;
    unlink(temporary.c_str());
    errno = error;
    return published;
}

Bytes ThumbnailFile(int width, int height, const Bytes& rgb) {
    Bytes file = {'T', 'H', 'U', 'M', 'B', 0, 0, 1};
    file.resize(kThumbnailHeaderSize);
    IQA::StoreLE32(&file[8], static_cast<uint32_t>(width));
    IQA::StoreLE32(&file[12], static_cast<uint32_t>(height));
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    file.reserve(file.size() + 4 * pixels);
    for (size_t i = 0; i < pixels; ++i) {
        file.insert(file.end(), rgb.begin() + 3 * i, rgb.begin() + 3 * i + 3);
        file.push_back(0xFF);
    }
    return file;
}

Bytes EncodeJpeg(const Bytes& pixels, int width, int height, int components, int quality,
                 const JpegOptions& options) {
    jpeg_compress_struct cinfo = {};
    jpeg_error_mgr errors = {};
    cinfo.err = jpeg_std_error(&errors);
    jpeg_create_compress(&cinfo);
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    jpeg_mem_dest(&cinfo, &out, &outSize);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = components;
    cinfo.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 4 ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    if (options.progressive) {
        jpeg_simple_progression(&cinfo);
    }
    cinfo.restart_interval = static_cast<unsigned>(options.restartInterval);
    if (options.fullChroma && components == 3) {
        for (int c = 0; c < 3; ++c) {
            cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
        }
    }
    jpeg_start_compress(&cinfo, TRUE);
    const size_t rowBytes = static_cast<size_t>(width) * static_cast<size_t>(components);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<unsigned char*>(pixels.data()) + rowBytes * cinfo.next_scanline;
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes jpeg(out, out + outSize);
    free(out);
    return jpeg;
}

namespace {

// Appends `value` in `bytes` bytes, in the index's byte order.
void Put(Bytes* out, uint64_t value, int bytes, bool bigEndian) {
    for (int i = 0; i < bytes; ++i) {
        const int shift = 8 * (bigEndian ? bytes - 1 - i : i);
        out->push_back(static_cast<unsigned char>(value >> shift));
    }
}

// Where the primary's leading APP0-APP15 segments end.
size_t AfterApplicationSegments(const Bytes& jpeg) {
    size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == 0xFF && (jpeg[at + 1] & 0xF0) == 0xE0) {
        at += 2 + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3]);
    }
    return at;
}

}  // namespace

Bytes MultiPictureJpeg(const Bytes& primary, const std::vector<FurtherImage>& further,
                       const MultiPictureOptions& options) {
    const bool big = options.bigEndian;
    const uint32_t count = static_cast<uint32_t>(further.size() + 1);
    Bytes index = {'M', 'P', 'F', 0};
    index.insert(index.end(), {static_cast<unsigned char>(big ? 'M' : 'I'),
                               static_cast<unsigned char>(big ? 'M' : 'I')});
    Put(&index, 42, 2, big);
    Put(&index, 8, 4, big);  // the IFD, right behind the TIFF header
    Put(&index, 3, 2, big);
    // Tag, type, count, value: the version (four bytes, "0100"), the image count, the entries.
    std::vector<std::array<uint32_t, 4>> tags = {
        {0xB000, 7, 4, 0}, {0xB001, 4, 1, count}, {0xB002, 7, 16 * count, kPictureEntriesAt}};
    if (options.imageListFirst) {
        std::rotate(tags.begin(), tags.end() - 1, tags.end());
    }
    for (const auto& tag : tags) {
        Put(&index, tag[0], 2, big);
        Put(&index, tag[1], 2, big);
        Put(&index, tag[2], 4, big);
        if (tag[0] == 0xB000) {  // bytes, not a number: the same in either byte order
            index.insert(index.end(), {'0', '1', '0', '0'});
        } else {
            Put(&index, tag[3], 4, big);
        }
    }
    Put(&index, 0, 4, big);  // no next IFD
    const size_t segment = 4 + index.size() + 16 * count;
    const size_t markAt = AfterApplicationSegments(primary) + 4 + 4;  // marker, length, "MPF\0"
    uint64_t offset = primary.size() + segment;
    Put(&index, 0x20030000, 4, big);
    Put(&index, static_cast<uint32_t>(offset + options.primarySizeError), 4, big);
    Put(&index, 0, 8, big);
    for (const FurtherImage& image : further) {
        Put(&index, image.attribute, 4, big);
        Put(&index, static_cast<uint32_t>(image.jpeg.size()), 4, big);
        Put(&index, static_cast<uint32_t>(offset - markAt), 4, big);
        Put(&index, 0, 4, big);
        offset += image.jpeg.size();
    }
    Bytes out(primary.begin(), primary.begin() + static_cast<long>(markAt - 8));
    out.insert(out.end(), {0xFF, 0xE2, static_cast<unsigned char>((segment - 2) >> 8),
                           static_cast<unsigned char>(segment - 2)});
    out.insert(out.end(), index.begin(), index.end());
    out.insert(out.end(), primary.begin() + static_cast<long>(markAt - 8), primary.end());
    for (const FurtherImage& image : further) {
        out.insert(out.end(), image.jpeg.begin(), image.jpeg.end());
    }
    return out;
}

bool DecodeJpeg(const Bytes& jpeg, Bytes* rgb, int* width, int* height, const Size& atLeast,
                int largestDenominator) {
    jpeg_decompress_struct cinfo = {};
    JumpingErrors errors = {};
    cinfo.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = JumpOut;
    errors.base.output_message = Silence;
    if (setjmp(errors.jump) != 0) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_RGB;
    cinfo.scale_num = 1;
    cinfo.scale_denom = static_cast<unsigned>(std::max(1, largestDenominator));
    const auto scaled = [&](JDIMENSION side) {
        return (side + cinfo.scale_denom - 1) / cinfo.scale_denom;
    };
    while (cinfo.scale_denom > 1 &&
           (scaled(cinfo.image_width) < static_cast<JDIMENSION>(std::max(0, atLeast.width)) ||
            scaled(cinfo.image_height) < static_cast<JDIMENSION>(std::max(0, atLeast.height)))) {
        cinfo.scale_denom /= 2;
    }
    jpeg_start_decompress(&cinfo);
    *width = static_cast<int>(cinfo.output_width);
    *height = static_cast<int>(cinfo.output_height);
    rgb->assign(static_cast<size_t>(cinfo.output_width) * cinfo.output_height * 3, 0);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row =
            rgb->data() + static_cast<size_t>(cinfo.output_scanline) * cinfo.output_width * 3;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

Bytes Trailer(const std::vector<std::pair<std::string, Bytes>>& records, const Bytes& other) {
    Bytes trailer;
    for (const auto& [tag, payload] : records) {
        trailer.insert(trailer.end(), payload.begin(), payload.end());
        char head[IQA::kTagSize] = {};
        std::strncpy(head, tag.c_str(), IQA::kTagSize - 1);
        trailer.resize(trailer.size() + IQA::kDataHeaderSize);
        IQA::EncodeDataHeader(static_cast<uint32_t>(payload.size()), head,
                              &trailer[trailer.size() - IQA::kDataHeaderSize]);
    }
    trailer.insert(trailer.end(), other.begin(), other.end());
    const char carried[IQA::kFileHeaderSize - 4] = {'C', 'A', 'M', 'E', 'R', 'A', '-',
                                                    'T', 'R', 'A', 'I', 'L', 'E', 'R',
                                                    ' ', 'v', '1', '.', '0', '0'};
    trailer.resize(trailer.size() + IQA::kFileHeaderSize);
    IQA::EncodeFileHeader(static_cast<uint32_t>(other.size()),
                          reinterpret_cast<const unsigned char*>(carried),
                          &trailer[trailer.size() - IQA::kFileHeaderSize]);
    return trailer;
}

bool ReadTrailer(IQA::ByteSource& file, TrailerListing* listing) {
    *listing = TrailerListing();
    listing->size = file.Size();
    IQA::PhotoLayout layout;
    listing->status = IQA::ReadPhotoLayout(file, &layout);
    listing->images = layout.images;
    for (const PhotoImage& image : layout.images) {
        listing->imageEnd = std::max(listing->imageEnd, image.offset + image.length);
    }
    listing->otherLength = layout.chain.otherLength;
    listing->records = layout.chain.records;
    for (const TrailerRecord& r : listing->records) {
        unsigned char bytes[IQA::kDescriptorSize];
        Descriptor d;
        const bool read =
            r.payloadLength >= sizeof(bytes) &&
            file.Read(r.payloadOffset + r.payloadLength - sizeof(bytes), bytes, sizeof(bytes)) &&
            IQA::DecodeDescriptor(bytes, r.payloadLength, &d);
        listing->descriptors.push_back(read ? std::optional<Descriptor>(d) : std::nullopt);
    }
    listing->problem = layout.problem == nullptr ? "" : layout.problem;
    return listing->status == IQA::LayoutStatus::kWhole;
}

bool ReadTrailer(const Bytes& file, TrailerListing* listing) {
    IQA::MemorySource source(file.data(), file.size());
    return ReadTrailer(source, listing);
}

std::string ImageKind(const TrailerListing& listing, size_t image) {
    const PhotoImage& i = listing.images.at(image);
    return i.indexed ? IQA::PictureKind(i.attribute) : image == 0 ? "primary" : "appended JPEG";
}

}  // namespace iqa_tools
