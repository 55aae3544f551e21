// Box reduction of a JPEG while it decodes: rows are reduced block by block from a strip of a
// few blocks, so the full-size image is never written out and read back, and only the columns
// and rows the reduction reads are reconstructed. The result is byte for byte what BoxReduce
// gives over the whole decoded image bounded by its height. A consumer that reads only the start
// of the reduced image says how much, and then only the rows those bytes come from are decoded.
#ifndef IQA_PROCESS_REDUCING_ROW_SINK_H
#define IQA_PROCESS_REDUCING_ROW_SINK_H

#include <cstdint>
#include <memory>

#include "common/MallocBlock.h"
#include "process/JpegRowSink.h"

namespace IQA {

// A consumer that reads the reduced image whole, and whose decode must report damage anywhere.
constexpr size_t kWholeImage = SIZE_MAX;

class ReducingRowSink : public JpegRowSink {
  public:
    // Reduces into out (dstWidth x dstHeight RGB) when the decoded image has more pixels than
    // that and is at least as wide; otherwise, or if the strip cannot be allocated, the rows go
    // to `buffer` as with a plain decode. out may be buffer itself, which `run` then describes
    // when it is a batch run's own. With a demand other than kWholeImage only the whole pixels
    // that hold the first `demand` bytes of out are produced, and the decode may stop below the
    // rows they come from.
    ReducingRowSink(unsigned char* out, int dstWidth, int dstHeight, unsigned char* buffer,
                    RunBuffer* run = nullptr, size_t demand = kWholeImage);

    // True when the rows were reduced into out instead of written to the buffer.
    bool reduced() const { return strip_ != nullptr; }
    // Bytes at the start of out that the reduction writes.
    size_t written() const { return written_; }

    RowRegion Plan(uint32_t width, uint32_t height) override;
    void Begin(uint32_t rowPixels) override;
    uint32_t Place(uint32_t first, uint32_t count, unsigned char** rows) override;
    void Filled(uint32_t first, uint32_t count) override;
    void End() override;

  private:
    // Source rows the produced output rows are reduced from.
    uint64_t SourceRows() const;
    void ReduceBlock(uint32_t block, uint32_t rows);

    unsigned char* out_;
    int dstWidth_, dstHeight_;
    BufferRowSink plain_;
    RunBuffer* run_;
    size_t demand_;
    std::unique_ptr<MallocBlock> stripBlock_;
    unsigned char* strip_ = nullptr;  // stripRows_ rows of the source: whole blocks of k rows
    std::unique_ptr<MallocBlock> spillBlock_;
    uint32_t srcHeight_{};
    uint32_t k_{};
    uint32_t stripRows_{};
    size_t rowPitch_{};  // bytes from one strip row to the next
    uint32_t blocks_{};  // output rows produced, the last one possibly in part
    size_t written_{};
};

}  // namespace IQA

#endif  // IQA_PROCESS_REDUCING_ROW_SINK_H
