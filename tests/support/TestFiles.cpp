// Temporary folders and file helpers for tests.
#include "tests/support/TestFiles.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <random>
#include <stdexcept>
#include <system_error>

#include <filesystem>

#include "tests/reference/ReferenceKernels.h"

namespace iqa_test {

TempDir::TempDir(Storage storage) {
    const bool memory = storage == Storage::kMemory && access("/dev/shm", W_OK) == 0;
    std::string pattern =
        (memory ? std::string("/dev/shm") : std::filesystem::temp_directory_path().string()) +
        "/iqa_test_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    // Tests may have removed permissions to provoke failures; give them back first.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
         it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
        chmod(it->path().c_str(), 0700);
    }
    std::filesystem::remove_all(path_, ignored);
}

ScopedWorkDir::ScopedWorkDir(Storage storage)
    : dir_(storage), previous_(std::filesystem::current_path().string()) {
    std::filesystem::current_path(dir_.path());
}

ScopedWorkDir::~ScopedWorkDir() {
    std::error_code ignored;
    std::filesystem::current_path(previous_, ignored);
}

Bytes ReadFile(const std::string& path) {
    Bytes bytes;
    iqa_tools::ReadWholeFile(path, &bytes);
    return bytes;
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    if (!iqa_tools::WriteWholeFile(path, bytes)) {
        throw std::runtime_error("cannot write " + path);
    }
}

void MakeDirs(const std::string& path) {
    std::filesystem::create_directories(path);
}

size_t OpenDescriptors() {
    const std::filesystem::directory_iterator fds("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(fds), end(fds)));
}

Bytes RandomBytes(size_t count, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes bytes(count);
    for (unsigned char& b : bytes) {
        b = static_cast<unsigned char>(rng() & 0xFF);
    }
    return bytes;
}

AtPageEnd::AtPageEnd(const Bytes& bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    length_ = (bytes.size() + page - 1) / page * page + page;
    pages_ = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages_ == MAP_FAILED ||
        mprotect(static_cast<char*>(pages_) + length_ - page, page, PROT_NONE) != 0) {
        throw std::runtime_error("no guarded pages");
    }
    data_ = static_cast<unsigned char*>(pages_) + length_ - page - bytes.size();
    std::copy(bytes.begin(), bytes.end(), data_);
}

AtPageEnd::~AtPageEnd() {
    munmap(pages_, length_);
}

}  // namespace iqa_test

namespace iqa_test {

Bytes CameraPhoto(const Bytes& rgb, int width, int height, const Bytes& record, const Bytes& other,
                  const iqa_tools::JpegOptions& options) {
    Bytes photo = iqa_tools::EncodeJpeg(rgb, width, height, 3, 90, options);
    const Bytes trailer = iqa_tools::Trailer({{"CAMINFO", record}}, other);
    photo.insert(photo.end(), trailer.begin(), trailer.end());
    return photo;
}

Bytes AddCameraPhoto(const std::string& root, const std::string& name, const Bytes& scene,
                     int width, int height, const Bytes& thumbScene, int tw, int th) {
    MakeDirs(root + kCamera + "/cache");
    const Bytes photo = CameraPhoto(scene, width, height);
    WriteFile(root + PhotoPath(name), photo);
    WriteFile(root + CachedThumb(name),
              iqa_tools::ThumbnailFile(tw, th, iqa_ref::Reduced(thumbScene, width, tw, th)));
    return photo;
}

Bytes ThumbnailHeaderOnly(int32_t width, int32_t height) {
    Bytes header(8, 0);
    for (int32_t v : {width, height}) {
        for (int i = 0; i < 4; ++i) {
            header.push_back(static_cast<unsigned char>(static_cast<uint32_t>(v) >> (8 * i)));
        }
    }
    return header;
}

}  // namespace iqa_test
