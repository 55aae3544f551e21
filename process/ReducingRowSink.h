// Box reduction of a JPEG while it decodes: rows are reduced block by block from a strip of a
// few blocks, so the full-size image is never written out and read back, and only the columns
// and rows the reduction reads are reconstructed. The result is byte for byte what BoxReduce
// gives over the whole decoded image bounded by its height.
#ifndef IQA_PROCESS_REDUCING_ROW_SINK_H
#define IQA_PROCESS_REDUCING_ROW_SINK_H

#include <memory>

#include "JpegRowSink.h"
#include "MallocBlock.h"

namespace IQA {

class ReducingRowSink : public JpegRowSink {
  public:
    // Reduces into out (dstWidth x dstHeight RGB) when the decoded image has more pixels than
    // that and is at least as wide; otherwise, or if the strip cannot be allocated, the rows go
    // to `buffer` as with a plain decode. out may be buffer itself.
    ReducingRowSink(unsigned char* out, int dstWidth, int dstHeight, unsigned char* buffer);

    // True when the rows were reduced into out instead of written to the buffer.
    bool reduced() const { return strip_ != nullptr; }

    RowRegion Plan(uint32_t width, uint32_t height) override;
    void Begin(uint32_t rowPixels) override;
    uint32_t Place(uint32_t first, uint32_t count, unsigned char** rows) override;
    void Filled(uint32_t first, uint32_t count) override;
    void End() override;

  private:
    void ReduceBlock(uint32_t block, uint32_t rows);

    unsigned char* out_;
    int dstWidth_, dstHeight_;
    BufferRowSink plain_;
    std::unique_ptr<MallocBlock> stripBlock_;
    unsigned char* strip_ = nullptr;  // stripRows_ rows of the source: whole blocks of k rows
    std::unique_ptr<MallocBlock> spillBlock_;
    uint32_t srcHeight_{};
    uint32_t k_{};
    uint32_t stripRows_{};
    uint32_t rowPixels_{};
    size_t rowPitch_{};  // bytes from one strip row to the next
};

}  // namespace IQA

#endif  // IQA_PROCESS_REDUCING_ROW_SINK_H
