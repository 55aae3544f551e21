// A regular file opened for reading as a FILE* (what the decoders read through), closed on every
// path out of the operation that opened it. A FIFO, device or folder is refused, never waited on.
#ifndef IQA_COMMON_SCOPED_FILE_H
#define IQA_COMMON_SCOPED_FILE_H

#include <cstdio>

#include "common/FileCalls.h"

namespace IQA {

class ScopedFile {
  public:
    explicit ScopedFile(const char* path) {
        const int fd = OpenRegularFile(path, O_RDONLY);
        file_ = fdopen(fd, "rb");  // null for a failed open (-1 is no descriptor)
        if (file_ == nullptr) {
            CloseFile(fd);
        }
    }
    ~ScopedFile() {
        if (file_ != nullptr) {
            fclose(file_);
        }
    }
    ScopedFile(const ScopedFile&) = delete;
    ScopedFile& operator=(const ScopedFile&) = delete;

    FILE* get() const { return file_; }
    explicit operator bool() const { return file_ != nullptr; }

  private:
    FILE* file_;
};

}  // namespace IQA

#endif  // IQA_COMMON_SCOPED_FILE_H
