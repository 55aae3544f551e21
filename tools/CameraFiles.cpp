// Writers and readers of the camera's thumbnail, JPEG and trailer formats.
#include "tools/CameraFiles.h"

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include <jpeglib.h>

#include "common/FileCalls.h"
#include "common/JpegStream.h"
#include "common/LittleEndian.h"

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

bool DecodeJpeg(const Bytes& jpeg, Bytes* rgb, int* width, int* height) {
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
    const char carried[IQA::kFileHeaderSize - 4] = "CAMTRAILER v1";
    trailer.resize(trailer.size() + IQA::kFileHeaderSize);
    IQA::EncodeFileHeader(static_cast<uint32_t>(other.size()),
                          reinterpret_cast<const unsigned char*>(carried),
                          &trailer[trailer.size() - IQA::kFileHeaderSize]);
    return trailer;
}

bool ReadTrailer(const Bytes& file, TrailerListing* listing) {
    *listing = TrailerListing();
    IQA::MemorySource source(file.data(), file.size());
    switch (IQA::FindJpegEnd(source, &listing->imageEnd)) {
        case IQA::JpegEnd::kNotJpeg:
            listing->problem = "no JPEG image at the start of the file";
            return false;
        case IQA::JpegEnd::kNoEnd:
            listing->problem = "the JPEG image has no end";
            return false;
        case IQA::JpegEnd::kFound:
            break;
    }
    IQA::TrailerChain chain;
    const bool whole = IQA::WalkTrailer(source, listing->imageEnd, &chain);
    listing->otherLength = chain.otherLength;
    listing->records = chain.records;
    listing->problem = whole ? "" : chain.problem;
    return whole;
}

bool ReadDescriptor(const Bytes& file, const TrailerRecord& record, Descriptor* descriptor) {
    return record.payloadOffset + record.payloadLength <= file.size() &&
           IQA::DecodeDescriptor(file.data() + record.payloadOffset, record.payloadLength,
                                 descriptor);
}

}  // namespace iqa_tools
