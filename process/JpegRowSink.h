// Where a JPEG's decoded rows go: straight into the destination buffer, or into a
// reduction that consumes them while they are still in cache.
#ifndef IQA_PROCESS_JPEG_ROW_SINK_H
#define IQA_PROCESS_JPEG_ROW_SINK_H

#include <cstddef>
#include <cstdint>

#include "process/RunBuffer.h"

namespace IQA {

// The part of an image a sink reads: the left `columns` of the top `rows` rows. With stopAfter
// its consumer needs nothing of the decode beyond them and accepts that damage in the
// entropy-coded data of the rows below goes unreported: the decode may end after the region once
// the rest of the file is proven unable to make a whole decode fail.
struct RowRegion {
    uint32_t columns;
    uint32_t rows;
    bool stopAfter = false;
};

class JpegRowSink {
  public:
    virtual ~JpegRowSink() = default;
    // The decoded size, once the header was read and the capacity checked. The decoder may
    // leave out columns right of the region; rows below it are only entropy-decoded, or not
    // decoded at all when the region allows it.
    virtual RowRegion Plan(uint32_t width, uint32_t height) = 0;
    // Rows now arrive rowPixels pixels long (the region's columns or more).
    virtual void Begin(uint32_t rowPixels) = 0;
    // Fills rows[0..n) with where rows first.. go and returns n, 1 <= n <= count.
    virtual uint32_t Place(uint32_t first, uint32_t count, unsigned char** rows) = 0;
    // Rows [first, first + count) hold their pixels now.
    virtual void Filled(uint32_t first, uint32_t count) = 0;
    // Every row of the region was decoded.
    virtual void End() = 0;
};

// The decoder's destination buffer, rows packed from the top; `run` describes it when it is a
// batch run's own.
class BufferRowSink : public JpegRowSink {
  public:
    explicit BufferRowSink(unsigned char* buffer, RunBuffer* run = nullptr)
        : buffer_(buffer), run_(run) {}
    RowRegion Plan(uint32_t width, uint32_t height) override;
    void Begin(uint32_t rowPixels) override;
    uint32_t Place(uint32_t first, uint32_t count, unsigned char** rows) override;
    void Filled(uint32_t, uint32_t) override {}
    void End() override {}

  private:
    unsigned char* buffer_;
    RunBuffer* run_;
    uint32_t height_{};
    size_t rowBytes_{};
};

}  // namespace IQA

#endif  // IQA_PROCESS_JPEG_ROW_SINK_H
