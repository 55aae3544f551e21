// Streaming box reduction: source row r belongs to output row r / k; the strip holds a few whole
// blocks so that the decoder fills it with many rows a call. Rows past the k x blocks the output
// needs are decoded into a spill row and dropped, and rows the image does not have count as zero,
// as they do for BoxReduce.
#include "process/ReducingRowSink.h"

#include <algorithm>

#include "common/SafeCopy.h"
#include "process/BoxReduce.h"

namespace IQA {

namespace {
constexpr int kChannels = 3;
// Rows a strip holds at least: about what libjpeg gives in one call (an iMCU row of a 4:2:0
// photo is 16 rows); for a 4000-pixel photo the strip stays within L2.
constexpr uint32_t kStripRows = 16;
// libjpeg's x86 colour converters write a row that starts on a 16- or 32-byte boundary with
// non-temporal stores, which send it past the caches to memory, just before the reduction reads
// it back. Strip rows therefore start 8 bytes past a 16-byte boundary (malloc gives 16-byte
// alignment, and the row pitch is a multiple of 16), so they are written into the cache.
constexpr size_t kPitchAlign = 16;
constexpr size_t kRowShift = 8;

size_t RowPitch(uint32_t pixels) {
    const size_t bytes = static_cast<size_t>(pixels) * kChannels;
    return (bytes + kPitchAlign - 1) / kPitchAlign * kPitchAlign;
}
}  // namespace

ReducingRowSink::ReducingRowSink(unsigned char* out, int dstWidth, int dstHeight,
                                 unsigned char* buffer, RunBuffer* run, size_t demand)
    : out_(out),
      dstWidth_(dstWidth),
      dstHeight_(dstHeight),
      plain_(buffer, run),
      run_(run),
      demand_(demand) {}

RowRegion ReducingRowSink::Plan(uint32_t width, uint32_t height) {
    const uint64_t pixels = static_cast<uint64_t>(width) * height;
    const uint64_t target = static_cast<uint64_t>(dstWidth_) * static_cast<uint64_t>(dstHeight_);
    if (out_ == nullptr || dstWidth_ < 1 || dstHeight_ < 1 || pixels <= target ||
        width < static_cast<uint32_t>(dstWidth_)) {
        return plain_.Plan(width, height);
    }
    k_ = width / static_cast<uint32_t>(dstWidth_);
    stripRows_ = k_ * ((kStripRows + k_ - 1) / k_);
    stripBlock_ = std::make_unique<MallocBlock>(RowPitch(width) * stripRows_ + kRowShift);
    spillBlock_ = std::make_unique<MallocBlock>(static_cast<size_t>(width) * kChannels);
    if (!*stripBlock_ || !*spillBlock_) {
        return plain_.Plan(width, height);
    }
    strip_ = stripBlock_->get() + kRowShift;
    srcHeight_ = height;
    // Whole pixels up to the last byte the consumer reads, and the output rows they lie in.
    const size_t rowBytes = static_cast<size_t>(dstWidth_) * kChannels;
    const size_t demand = std::min(demand_, rowBytes * static_cast<size_t>(dstHeight_));
    written_ = (demand + kChannels - 1) / kChannels * kChannels;
    blocks_ = static_cast<uint32_t>((written_ + rowBytes - 1) / rowBytes);
    return {k_ * static_cast<uint32_t>(dstWidth_),
            static_cast<uint32_t>(std::min<uint64_t>(height, SourceRows())),
            demand_ != kWholeImage};
}

void ReducingRowSink::Begin(uint32_t rowPixels) {
    if (strip_ == nullptr) {
        return plain_.Begin(rowPixels);
    }
    rowPitch_ = RowPitch(rowPixels);
    IQA_CHECK_COPY_AS(kTagProcessData, "JpegDecoder", Rewrite(run_, written_));
}

uint32_t ReducingRowSink::Place(uint32_t first, uint32_t count, unsigned char** rows) {
    if (strip_ == nullptr) {
        return plain_.Place(first, count, rows);
    }
    const uint64_t used = SourceRows();
    if (first >= used) {
        std::fill_n(rows, count, spillBlock_->get());
        return count;
    }
    const uint32_t inStrip = first % stripRows_;
    const uint32_t n =
        static_cast<uint32_t>(std::min<uint64_t>({count, stripRows_ - inStrip, used - first}));
    for (uint32_t i = 0; i < n; ++i) {
        rows[i] = strip_ + rowPitch_ * (inStrip + i);
    }
    return n;
}

void ReducingRowSink::Filled(uint32_t first, uint32_t count) {
    if (strip_ == nullptr) {
        return;
    }
    const uint64_t used = SourceRows();
    for (uint64_t end = first + 1; end <= static_cast<uint64_t>(first) + count && end <= used;
         ++end) {
        if (end % k_ == 0) {
            ReduceBlock(static_cast<uint32_t>(end / k_ - 1), k_);
        }
    }
}

void ReducingRowSink::End() {
    if (strip_ == nullptr) {
        return;
    }
    // Output rows the image does not fill: a last partial block, then blocks of no rows at all.
    for (uint64_t block = srcHeight_ / k_; block < blocks_; ++block) {
        const uint64_t firstRow = block * k_;
        const uint32_t rows =
            firstRow < srcHeight_ ? srcHeight_ - static_cast<uint32_t>(firstRow) : 0;
        ReduceBlock(static_cast<uint32_t>(block), rows);
    }
}

uint64_t ReducingRowSink::SourceRows() const {
    return static_cast<uint64_t>(k_) * blocks_;
}

void ReducingRowSink::ReduceBlock(uint32_t block, uint32_t rows) {
    const size_t stripRow = (static_cast<size_t>(block) * k_) % stripRows_;
    const size_t offset = static_cast<size_t>(block) * static_cast<size_t>(dstWidth_) * kChannels;
    const int pixels =
        static_cast<int>(std::min<size_t>(dstWidth_, (written_ - offset) / kChannels));
    // A row of k x pixels source pixels keeps the block side k for a last row read in part.
    BoxReduceRows(strip_ + rowPitch_ * stripRow, static_cast<int>(k_) * pixels, rowPitch_, rows,
                  out_ + offset, pixels, 1);
}

}  // namespace IQA
