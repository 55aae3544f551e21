// Random-access reads of a photo, from an open file or from bytes in memory, so that the JPEG
// walk and the trailer walk are written once for the library and the host tools.
#ifndef IQA_COMMON_BYTE_SOURCE_H
#define IQA_COMMON_BYTE_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace IQA {

class ByteSource {
  public:
    virtual ~ByteSource() = default;
    virtual uint64_t Size() const = 0;
    // Copies `count` bytes at `offset` into out; false when they are not all there.
    virtual bool Read(uint64_t offset, unsigned char* out, size_t count) = 0;
};

class MemorySource : public ByteSource {
  public:
    MemorySource(const unsigned char* bytes, size_t size) : bytes_(bytes), size_(size) {}
    uint64_t Size() const override { return size_; }
    bool Read(uint64_t offset, unsigned char* out, size_t count) override;

  private:
    const unsigned char* bytes_;
    size_t size_;
};

// An open file of a fixed length. Reads go through one 64 KiB window, so that walking many
// small headers backwards or scanning entropy-coded data forwards costs one read per window.
class FileSource : public ByteSource {
  public:
    FileSource(int fd, uint64_t size) : fd_(fd), size_(size) {}
    uint64_t Size() const override { return size_; }
    bool Read(uint64_t offset, unsigned char* out, size_t count) override;

  private:
    static constexpr size_t kWindow = 64 * 1024;
    int fd_;
    uint64_t size_;
    std::vector<unsigned char> window_;
    uint64_t windowStart_ = 0;
};

}  // namespace IQA

#endif  // IQA_COMMON_BYTE_SOURCE_H
