// JPEG photos through libjpeg (interface 62), decoded to RGB rows handed to a sink once the
// destination's capacity is known to suffice. Fatal library errors are recovered with longjmp
// so a damaged photo can never abort the host process.
#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

#include "IqaLog.h"
#include "IqaProcessData.h"
#include "JpegFile.h"
#include "ResolvedPath.h"
#include "ScopedFile.h"
#include "WrittenExtent.h"

#if JPEG_LIB_VERSION != 62
#error "the decoder is written against the classic libjpeg interface, version 62"
#endif

namespace IQA {

namespace {

// The decode runs in helpers whose log lines belong to the exported operation.
constexpr const char* kOperation = "JpegDecoder";
constexpr int kRgbComponents = 3;
constexpr JDIMENSION kRowsPerCall = 16;

struct RecoveringErrorManager {
    jpeg_error_mgr base;
    jmp_buf recovery;
};

[[noreturn]] void RecoverFromError(j_common_ptr info) {
    char message[JMSG_LENGTH_MAX] = {};
    info->err->format_message(info, message);
    IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "%s", message);
    longjmp(reinterpret_cast<RecoveringErrorManager*>(info->err)->recovery, 1);
}

// Warnings (damaged but decodable data) go to the log instead of the host's stderr.
void LogWarning(j_common_ptr info) {
    char message[JMSG_LENGTH_MAX] = {};
    info->err->format_message(info, message);
    IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "%s", message);
}

struct DecodeResult {
    bool ok;
    JDIMENSION width;
    JDIMENSION height;
};

// The capacity was checked against the header's size in RGB; the rows written must agree.
bool MatchesCheckedSize(const jpeg_decompress_struct& cinfo) {
    return cinfo.output_width == cinfo.image_width && cinfo.output_height == cinfo.image_height &&
           cinfo.output_components == kRgbComponents;
}

void ReadAllRows(jpeg_decompress_struct& cinfo, JpegRowSink& sink) {
    JSAMPROW rows[kRowsPerCall];
    while (cinfo.output_scanline < cinfo.output_height) {
        const JDIMENSION first = cinfo.output_scanline;
        const JDIMENSION placed =
            sink.Place(first, std::min(kRowsPerCall, cinfo.output_height - first), rows);
        const JDIMENSION read = jpeg_read_scanlines(&cinfo, rows, placed);
        sink.Filled(first, read);
    }
}

// Holds no object with a destructor: a longjmp back into this frame must skip nothing.
DecodeResult Decode(FILE* file, unsigned long long bufferSize, JpegRowSink& sink) {
    jpeg_decompress_struct cinfo = {};
    RecoveringErrorManager errors = {};
    cinfo.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = RecoverFromError;
    errors.base.output_message = LogWarning;
    if (setjmp(errors.recovery) != 0) {
        jpeg_destroy_decompress(&cinfo);
        return {false, 0, 0};
    }
    jpeg_CreateDecompress(&cinfo, JPEG_LIB_VERSION, sizeof(jpeg_decompress_struct));
    jpeg_stdio_src(&cinfo, file);
    jpeg_read_header(&cinfo, TRUE);
    // RGB output has three components whatever the file holds (a greyscale photo is expanded),
    // so the capacity is checked against what will really be written.
    const unsigned long long needed =
        static_cast<unsigned long long>(cinfo.image_width) * cinfo.image_height * kRgbComponents;
    if (bufferSize < needed) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation,
                   "IqaProcessData JpegDecoder: buf size too small!");
        jpeg_destroy_decompress(&cinfo);
        return {false, 0, 0};
    }
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagProcessData, kOperation,
               "output width %d, height %d, components %d\n", static_cast<int>(cinfo.output_width),
               static_cast<int>(cinfo.output_height), cinfo.output_components);
    if (!MatchesCheckedSize(cinfo)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "unexpected output size");
        jpeg_destroy_decompress(&cinfo);
        return {false, 0, 0};
    }
    sink.Begin(cinfo.output_width, cinfo.output_height);
    ReadAllRows(cinfo, sink);
    sink.End();
    const DecodeResult result{true, cinfo.image_width, cinfo.image_height};
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return result;
}

}  // namespace

void BufferRowSink::Begin(uint32_t width, uint32_t height) {
    rowBytes_ = static_cast<size_t>(width) * kRgbComponents;
    WrittenExtent::NoteWritten(buffer_, rowBytes_ * height);
}

uint32_t BufferRowSink::Place(uint32_t first, uint32_t count, unsigned char** rows) {
    for (uint32_t i = 0; i < count; ++i) {
        rows[i] = buffer_ + rowBytes_ * (first + i);
    }
    return count;
}

long long DecodeJpegFile(const char* path, unsigned long long bufferSize, JpegRowSink& sink,
                         int* width, int* height) {
    const ResolvedPath resolved(path);
    if (!resolved.ok) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "Failed to resolve path.");
        return 0;
    }
    ScopedFile file(resolved.path);
    if (!file) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagProcessData, kOperation, "can't open %s.", resolved.path);
        return 0;
    }
    const DecodeResult result = Decode(file.get(), bufferSize, sink);
    if (!result.ok) {
        return 0;
    }
    *width = static_cast<int>(result.width);
    *height = static_cast<int>(result.height);
    return static_cast<long long>(static_cast<unsigned long long>(result.width) * result.height);
}

long long IqaProcessData::JpegDecoder(const char* path, unsigned char* buffer,
                                      unsigned long long bufferSize, int* width, int* height) {
    BufferRowSink sink(buffer);
    return DecodeJpegFile(path, bufferSize, sink, width, height);
}

}  // namespace IQA
