// JPEG photos through libjpeg (interface 62), decoded to RGB rows handed to a sink once the
// destination's capacity is known to suffice. Fatal library errors are recovered with longjmp
// so a damaged photo can never abort the host process. A sink that needs only the top rows may
// have the decode end below them, when what follows in the file is proven unable to change the
// outcome of a whole decode.
#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdio>

#include <jpeglib.h>

#include "IqaProcessData.h"
#include "common/IqaLog.h"
#include "common/JpegStream.h"
#include "common/ResolvedPath.h"
#include "common/SafeCopy.h"
#include "common/ScopedFile.h"
#include "process/JpegFile.h"
#include "process/JpegFileSource.h"

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

// Reads rows up to `end` in whatever batches the sink takes them. A row the sink leaves unplaced
// faults at once rather than going wherever an earlier call's pointer was left.
void ReadRows(jpeg_decompress_struct& cinfo, JpegRowSink& sink, JDIMENSION end) {
    JSAMPROW rows[kRowsPerCall] = {};
    while (cinfo.output_scanline < end) {
        const JDIMENSION first = cinfo.output_scanline;
        const JDIMENSION placed = sink.Place(first, std::min(kRowsPerCall, end - first), rows);
        sink.Filled(first, jpeg_read_scanlines(&cinfo, rows, placed));
    }
}

// Columns right of the region are not reconstructed. The crop is one iMCU column wider than
// the region: at its right edge fancy upsampling then sees the neighbours a whole decode sees,
// and the region's pixels come out identical.
void CropToRegion(jpeg_decompress_struct& cinfo, const RowRegion& region) {
    JDIMENSION x = 0;
    JDIMENSION width = region.columns + static_cast<JDIMENSION>(cinfo.max_h_samp_factor) * DCTSIZE;
    if (width < cinfo.output_width) {
        jpeg_crop_scanline(&cinfo, &x, &width);
    }
}

// Rows below the region are entropy-decoded but not reconstructed, so that damage there is
// reported exactly as a whole decode reports it; the last row is read, because skipping to the
// very end would not decode what lies before it.
void SkipRest(jpeg_decompress_struct& cinfo, JpegRowSink& sink) {
    if (cinfo.output_scanline + 1 < cinfo.output_height) {
        jpeg_skip_scanlines(&cinfo, cinfo.output_height - 1 - cinfo.output_scanline);
    }
    ReadRows(cinfo, sink, cinfo.output_height);
}

// Whether the decode may stop below the region and still come to the outcome of a whole decode.
// libjpeg raises no fatal error from entropy-coded data (a bad code or a marker hit inside it is
// a warning); what can fail a whole decode is a marker after the data. So a photo of one
// Huffman-coded scan qualifies when its data, from the scan's start, is checked as it is read;
// more scans, progressive or arithmetic coding never do.
bool MayStopEarly(jpeg_decompress_struct& cinfo, const RowRegion& region, uint64_t scanStart) {
    return region.stopAfter && region.rows < cinfo.output_height && !cinfo.progressive_mode &&
           !cinfo.arith_code && !jpeg_has_multiple_scans(&cinfo) &&
           SourceOffset(&cinfo) == scanStart;
}

// After the region: true when the rest of the file holds only what the scan check accepts, up to
// the EOI that ends the scan's data. Anything else (another marker, a marker out of order, a file
// that ends before its EOI) is then decoded to the end as a whole decode would.
bool RestProvenHarmless(jpeg_decompress_struct& cinfo, const ScanCheck& check) {
    FeedRest(&cinfo);
    WatchScan(&cinfo, nullptr);
    return check.EndsAtEoi();
}

// Holds no object with a non-trivial destructor: a longjmp back into this frame must skip nothing.
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
    UseFileSource(&cinfo, file);
    jpeg_read_header(&cinfo, TRUE);
    const uint64_t scanStart = SourceOffset(&cinfo);
    // RGB output has three components whatever the file holds (a greyscale photo is expanded),
    // and at libjpeg's default scale of 1/1 the output has the header's size, so the capacity is
    // checked against what will really be written.
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
    const RowRegion region = sink.Plan(cinfo.output_width, cinfo.output_height);
    // All of the scan's MCUs are entropy-coded, whatever columns are reconstructed.
    ScanCheck check(cinfo.restart_interval,
                    static_cast<uint64_t>(cinfo.MCUs_per_row) * cinfo.MCU_rows_in_scan);
    const bool mayStop = MayStopEarly(cinfo, region, scanStart);
    if (mayStop) {
        WatchScan(&cinfo, &check);
    }
    CropToRegion(cinfo, region);
    sink.Begin(cinfo.output_width);
    ReadRows(cinfo, sink, region.rows);
    sink.End();
    const DecodeResult result{true, cinfo.image_width, cinfo.image_height};
    if (!mayStop || !RestProvenHarmless(cinfo, check)) {
        SkipRest(cinfo, sink);
        jpeg_finish_decompress(&cinfo);
    }
    jpeg_destroy_decompress(&cinfo);
    return result;
}

}  // namespace

RowRegion BufferRowSink::Plan(uint32_t width, uint32_t height) {
    height_ = height;
    return {width, height};
}

void BufferRowSink::Begin(uint32_t rowPixels) {
    rowBytes_ = static_cast<size_t>(rowPixels) * kRgbComponents;
    IQA_CHECK_COPY_AS(kTagProcessData, kOperation, Rewrite(run_, rowBytes_ * height_));
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
