// A FILE* that is closed on every path out of the operation that opened it.
#ifndef IQA_COMMON_SCOPED_FILE_H
#define IQA_COMMON_SCOPED_FILE_H

#include <cstdio>

namespace IQA {

class ScopedFile {
  public:
    ScopedFile(const char* path, const char* mode) : file_(fopen(path, mode)) {}
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
