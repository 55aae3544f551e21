// Integer box reduction of RGB images, bounded to the rows the source really has.
#ifndef IQA_PROCESS_BOX_REDUCE_H
#define IQA_PROCESS_BOX_REDUCE_H

#include <cstddef>
#include <cstdint>

namespace IQA {

// A source whose height the caller does not know.
constexpr int64_t kUnboundedRows = INT64_MAX;

// Reduces src (RGB, row length srcWidth pixels, srcRows rows) by k = srcWidth / dstWidth into
// dst (dstWidth x dstHeight RGB). Each output byte is the rounded-down mean of its k x k
// block; block rows at or beyond srcRows count as zero bytes, as a cleared buffer would hold.
// k < 1 gives an all-zero image; dstWidth or dstHeight below 1 writes nothing. The caller has
// rejected zero sizes.
void BoxReduce(const unsigned char* src, int srcWidth, int64_t srcRows, unsigned char* dst,
               int dstWidth, int dstHeight);

// BoxReduce over source rows that lie srcStride bytes apart (at least srcWidth * 3).
void BoxReduceRows(const unsigned char* src, int srcWidth, size_t srcStride, int64_t srcRows,
                   unsigned char* dst, int dstWidth, int dstHeight);

}  // namespace IQA

#endif  // IQA_PROCESS_BOX_REDUCE_H
