// A libjpeg source manager over a FILE*, behaving as the stdio source does at end of file.
#include "process/JpegFileSource.h"

#include <jerror.h>

#include <algorithm>

#include "common/FileCalls.h"
#include "common/MallocBlock.h"

namespace IQA {

namespace {

constexpr size_t kBlock = 64 * 1024;

struct BlockSource {
    jpeg_source_mgr base;
    FILE* file;
    JOCTET* buffer;
    bool startOfFile;
    uint64_t fetched;  // bytes read from the file so far
    bool madeUpEnd;
    ScanCheck* check;  // fed every byte read, when watching
};

BlockSource* Source(j_decompress_ptr cinfo) {
    return reinterpret_cast<BlockSource*>(cinfo->src);
}

void InitSource(j_decompress_ptr cinfo) {
    Source(cinfo)->startOfFile = true;
}

boolean FillInputBuffer(j_decompress_ptr cinfo) {
    BlockSource* source = Source(cinfo);
    size_t count = fread(source->buffer, 1, kBlock, source->file);
    if (count == 0) {
        if (source->startOfFile) {
            ERREXIT(cinfo, JERR_INPUT_EMPTY);
        }
        // A truncated photo: warn and end it with a fake EOI marker, as the stdio source does.
        WARNMS(cinfo, JWRN_JPEG_EOF);
        source->buffer[0] = 0xFF;
        source->buffer[1] = JPEG_EOI;
        source->madeUpEnd = true;
        count = 2;
    } else {
        source->fetched += count;
        if (source->check != nullptr) {
            source->check->Feed(source->buffer, count);
        }
    }
    source->base.next_input_byte = source->buffer;
    source->base.bytes_in_buffer = count;
    source->startOfFile = false;
    return TRUE;
}

void SkipInputData(j_decompress_ptr cinfo, long count) {
    jpeg_source_mgr* source = cinfo->src;
    if (count <= 0) {
        return;
    }
    while (count > static_cast<long>(source->bytes_in_buffer)) {
        count -= static_cast<long>(source->bytes_in_buffer);
        FillInputBuffer(cinfo);  // never suspends
    }
    source->next_input_byte += count;
    source->bytes_in_buffer -= static_cast<size_t>(count);
}

void TermSource(j_decompress_ptr) {}

}  // namespace

void UseFileSource(j_decompress_ptr cinfo, FILE* file) {
    auto* source = static_cast<BlockSource*>((*cinfo->mem->alloc_small)(
        reinterpret_cast<j_common_ptr>(cinfo), JPOOL_PERMANENT, sizeof(BlockSource)));
    source->buffer = static_cast<JOCTET*>(
        (*cinfo->mem->alloc_large)(reinterpret_cast<j_common_ptr>(cinfo), JPOOL_PERMANENT, kBlock));
    source->file = file;
    source->base.init_source = InitSource;
    source->base.fill_input_buffer = FillInputBuffer;
    source->base.skip_input_data = SkipInputData;
    source->base.resync_to_restart = jpeg_resync_to_restart;
    source->base.term_source = TermSource;
    source->base.bytes_in_buffer = 0;
    source->base.next_input_byte = nullptr;
    source->fetched = 0;
    source->madeUpEnd = false;
    source->check = nullptr;
    cinfo->src = &source->base;
}

uint64_t SourceOffset(j_decompress_ptr cinfo) {
    const BlockSource* source = Source(cinfo);
    return source->madeUpEnd ? kNoOffset : source->fetched - source->base.bytes_in_buffer;
}

void WatchScan(j_decompress_ptr cinfo, ScanCheck* check) {
    BlockSource* source = Source(cinfo);
    source->check = check;
    if (check != nullptr) {
        check->Feed(source->base.next_input_byte, source->base.bytes_in_buffer);
    }
}

void FeedRest(j_decompress_ptr cinfo) {
    const BlockSource* source = Source(cinfo);
    const int fd = fileno(source->file);
    const int64_t length = FileLength(fd);
    MallocBlock block(kBlock);
    for (uint64_t at = source->fetched; block && length >= 0 && at < static_cast<uint64_t>(length);
         at += kBlock) {
        const size_t count = static_cast<size_t>(std::min<uint64_t>(kBlock, length - at));
        if (!ReadFully(fd, at, block.get(), count) || !source->check->Feed(block.get(), count)) {
            return;
        }
    }
}

}  // namespace IQA
