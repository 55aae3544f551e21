// A regular file opened for reading as a FILE* (what the decoders read through), closed on every
// path out of the operation that opened it, or handed on to whoever reads it later. A FIFO,
// device or folder is refused, never waited on.
#ifndef IQA_COMMON_SCOPED_FILE_H
#define IQA_COMMON_SCOPED_FILE_H

#include <cstdio>
#include <utility>

#include "common/FileCalls.h"

namespace IQA {

class ScopedFile {
  public:
    ScopedFile() = default;  // no file
    explicit ScopedFile(const char* path) : file_(OpenRegularStream(path)) {}
    ~ScopedFile() { Close(); }
    ScopedFile(ScopedFile&& other) noexcept : file_(std::exchange(other.file_, nullptr)) {}
    ScopedFile& operator=(ScopedFile&& other) noexcept {
        if (this != &other) {
            Close();
            file_ = std::exchange(other.file_, nullptr);
        }
        return *this;
    }

    FILE* get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }

  private:
    void Close() {
        if (file_ != nullptr) {
            fclose(file_);
        }
    }

    FILE* file_ = nullptr;
};

}  // namespace IQA

#endif  // IQA_COMMON_SCOPED_FILE_H
