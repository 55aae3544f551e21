// Streaming box reduction: source row r belongs to output row r / k at strip row r % k; rows
// past k x dstHeight are decoded into a spill row and dropped, and rows the image does not have
// count as zero, as they do for BoxReduce.
#include "ReducingRowSink.h"

#include <algorithm>

#include "BoxReduce.h"

namespace IQA {

namespace {
constexpr int kChannels = 3;
}

ReducingRowSink::ReducingRowSink(unsigned char* out, int dstWidth, int dstHeight,
                                 unsigned char* buffer)
    : out_(out), dstWidth_(dstWidth), dstHeight_(dstHeight), plain_(buffer) {}

void ReducingRowSink::Begin(uint32_t width, uint32_t height) {
    const uint64_t pixels = static_cast<uint64_t>(width) * height;
    const uint64_t target = static_cast<uint64_t>(dstWidth_) * static_cast<uint64_t>(dstHeight_);
    if (out_ == nullptr || dstWidth_ < 1 || dstHeight_ < 1 || pixels <= target ||
        width < static_cast<uint32_t>(dstWidth_)) {
        plain_.Begin(width, height);
        return;
    }
    srcWidth_ = static_cast<int>(width);
    srcHeight_ = height;
    k_ = width / static_cast<uint32_t>(dstWidth_);
    rowBytes_ = static_cast<size_t>(width) * kChannels;
    stripBlock_ = std::make_unique<MallocBlock>(rowBytes_ * k_, MallocBlock::Fill::kNone);
    spillBlock_ = std::make_unique<MallocBlock>(rowBytes_, MallocBlock::Fill::kNone);
    if (*stripBlock_ && *spillBlock_) {
        strip_ = stripBlock_->get();
    } else {
        plain_.Begin(width, height);
    }
}

uint32_t ReducingRowSink::Place(uint32_t first, uint32_t count, unsigned char** rows) {
    if (strip_ == nullptr) {
        return plain_.Place(first, count, rows);
    }
    const uint64_t used = static_cast<uint64_t>(k_) * static_cast<uint64_t>(dstHeight_);
    if (first >= used) {
        std::fill_n(rows, count, spillBlock_->get());
        return count;
    }
    const uint32_t inBlock = first % k_;
    const uint32_t n = std::min(count, k_ - inBlock);
    for (uint32_t i = 0; i < n; ++i) {
        rows[i] = strip_ + rowBytes_ * (inBlock + i);
    }
    return n;
}

void ReducingRowSink::Filled(uint32_t first, uint32_t count) {
    const uint64_t end = static_cast<uint64_t>(first) + count;
    if (strip_ != nullptr && count > 0 && end % k_ == 0 &&
        end <= static_cast<uint64_t>(k_) * static_cast<uint64_t>(dstHeight_)) {
        ReduceBlock(static_cast<uint32_t>(end / k_ - 1), k_);
    }
}

void ReducingRowSink::End() {
    if (strip_ == nullptr) {
        return;
    }
    // Output rows the image does not fill: a last partial block, then blocks of no rows at all.
    for (uint64_t block = srcHeight_ / k_; block < static_cast<uint64_t>(dstHeight_); ++block) {
        const uint64_t firstRow = block * k_;
        const uint32_t rows =
            firstRow < srcHeight_ ? srcHeight_ - static_cast<uint32_t>(firstRow) : 0;
        ReduceBlock(static_cast<uint32_t>(block), rows);
    }
}

void ReducingRowSink::ReduceBlock(uint32_t block, uint32_t rows) {
    unsigned char* row =
        out_ + static_cast<size_t>(block) * static_cast<size_t>(dstWidth_) * kChannels;
    BoxReduce(strip_, srcWidth_, rows, row, dstWidth_, 1);
}

}  // namespace IQA
