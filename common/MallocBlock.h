// A malloc'ed or calloc'ed block that is freed on every path out of its scope.
#ifndef IQA_COMMON_MALLOC_BLOCK_H
#define IQA_COMMON_MALLOC_BLOCK_H

#include <cstddef>
#include <cstdlib>

namespace IQA {

class MallocBlock {
  public:
    enum class Fill { kNone, kZero };

    MallocBlock(size_t size, Fill fill)
        : data_(static_cast<unsigned char*>(size == 0             ? nullptr
                                            : fill == Fill::kZero ? calloc(1, size)
                                                                  : malloc(size))),
          size_(data_ == nullptr ? 0 : size) {}
    ~MallocBlock() { free(data_); }
    MallocBlock(const MallocBlock&) = delete;
    MallocBlock& operator=(const MallocBlock&) = delete;

    unsigned char* get() const { return data_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return data_ != nullptr; }

  private:
    unsigned char* data_;
    size_t size_;
};

}  // namespace IQA

#endif  // IQA_COMMON_MALLOC_BLOCK_H
