// Test scaffolding: temporary folders and whole-file reads and writes.
#ifndef IQA_TESTS_TEST_FILES_H
#define IQA_TESTS_TEST_FILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace iqa_test {

using Bytes = std::vector<unsigned char>;

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

// Makes a fresh temporary folder the working directory, and restores the old one after.
class ScopedWorkDir {
  public:
    ScopedWorkDir();
    ~ScopedWorkDir();
    const std::string& path() const { return dir_.path(); }

  private:
    TempDir dir_;
    std::string previous_;
};

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);
void MakeDirs(const std::string& path);

// A thumbnail header with any width and height, and no pixels.
Bytes ThumbnailHeaderOnly(int32_t width, int32_t height);

// Fixed-seed random bytes (hostile data, noise).
Bytes RandomBytes(size_t count, uint32_t seed);

}  // namespace iqa_test

#endif  // IQA_TESTS_TEST_FILES_H
