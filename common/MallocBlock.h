// A malloc'ed block that is freed on every path out of its scope. Its bytes start undefined
// unless it was made Zeroed; size() is what was asked for, so check the block first.
#ifndef IQA_COMMON_MALLOC_BLOCK_H
#define IQA_COMMON_MALLOC_BLOCK_H

#include <cstddef>
#include <cstdlib>

namespace IQA {

class MallocBlock {
  public:
    explicit MallocBlock(size_t size) : MallocBlock(size, malloc(size)) {}
    static MallocBlock Zeroed(size_t size) { return MallocBlock(size, calloc(1, size)); }
    ~MallocBlock() { free(data_); }
    MallocBlock(const MallocBlock&) = delete;
    MallocBlock& operator=(const MallocBlock&) = delete;

    unsigned char* get() const { return data_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return data_ != nullptr; }

  private:
    MallocBlock(size_t size, void* data) : data_(static_cast<unsigned char*>(data)), size_(size) {}

    unsigned char* data_;
    size_t size_;
};

}  // namespace IQA

#endif  // IQA_COMMON_MALLOC_BLOCK_H
