// Test scaffolding: temporary folders and whole-file reads and writes.
#ifndef IQA_TESTS_TEST_FILES_H
#define IQA_TESTS_TEST_FILES_H

#include <cstdint>
#include <string>
#include <vector>

#include "tools/files/CameraFiles.h"

namespace iqa_test {

using Bytes = std::vector<unsigned char>;

// Where a TempDir is made: the system's temporary folder, or memory (when the system has a RAM
// file system), for tests that make thousands of durable writes.
enum class Storage { kDisk, kMemory };

// A fresh folder, removed with everything in it.
class TempDir {
  public:
    explicit TempDir(Storage storage = Storage::kDisk);
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
    explicit ScopedWorkDir(Storage storage = Storage::kDisk);
    ~ScopedWorkDir();
    const std::string& path() const { return dir_.path(); }

  private:
    TempDir dir_;
    std::string previous_;
};

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);
void MakeDirs(const std::string& path);

// A photo as the camera stores it: the JPEG of width x height RGB pixels, then a trailer of one
// "CAMINFO" record and the other data.
Bytes CameraPhoto(const Bytes& rgb, int width, int height, const Bytes& record = Bytes(40, 7),
                  const Bytes& other = Bytes(9, 8), const iqa_tools::JpegOptions& options = {});

// The camera folder layout a batch run works on, relative to its working directory. Spelled out
// here rather than taken from the library, so that a folder or suffix changed there by mistake
// fails the tests.
inline const std::string kCamera = "storage/emulated/0/DCIM/Camera";
inline std::string PhotoPath(const std::string& name) {
    return kCamera + "/" + name + ".jpg";
}
inline std::string CachedThumb(const std::string& name) {
    return kCamera + "/cache/" + name + ".thumbnail";
}
inline std::string BackupThumb(const std::string& name) {
    return kCamera + "/iqathumb/" + name + ".thumbnail";
}

// Writes a camera photo of the width x height scene under root (a folder prefix ending in '/',
// or "" for the working directory) and its tw x th thumbnail, thumbScene box-reduced; returns
// the photo file.
Bytes AddCameraPhoto(const std::string& root, const std::string& name, const Bytes& scene,
                     int width, int height, const Bytes& thumbScene, int tw, int th);

// A thumbnail header with any width and height, and no pixels.
Bytes ThumbnailHeaderOnly(int32_t width, int32_t height);

// How many file descriptors the process has open: what every test that opens files through the
// library must find unchanged afterwards.
size_t OpenDescriptors();

// Fixed-seed random bytes (hostile data, noise).
Bytes RandomBytes(size_t count, uint32_t seed);

// `bytes` copied so that they end exactly where a page no one may read begins: code that reads a
// byte past them faults.
class AtPageEnd {
  public:
    explicit AtPageEnd(const Bytes& bytes);
    ~AtPageEnd();
    AtPageEnd(const AtPageEnd&) = delete;
    AtPageEnd& operator=(const AtPageEnd&) = delete;
    unsigned char* data() const { return data_; }

  private:
    void* pages_;
    size_t length_;
    unsigned char* data_;
};

}  // namespace iqa_test

#endif  // IQA_TESTS_TEST_FILES_H
