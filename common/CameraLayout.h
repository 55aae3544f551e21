// Where a camera keeps what the library reads and writes, relative to the storage root (the host's
// working directory), and the batch run's fixed values: the one home of these facts for the
// library, the host tools and the benchmarks.
#ifndef IQA_COMMON_CAMERA_LAYOUT_H
#define IQA_COMMON_CAMERA_LAYOUT_H

#include <cstddef>

namespace IQA {

constexpr const char* kCameraFolder = "storage/emulated/0/DCIM/Camera";       // the photos
constexpr const char* kCacheFolder = "storage/emulated/0/DCIM/Camera/cache";  // raw thumbnails
// The library's own folder inside the camera folder: backed-up thumbnails and dump journals.
constexpr const char* kBackupFolderName = "iqathumb";
constexpr const char* kBackupFolder = "storage/emulated/0/DCIM/Camera/iqathumb";
constexpr unsigned kBackupFolderMode = 0775;
constexpr const char* kThumbnailSuffix = ".thumbnail";
constexpr const char* kPhotoSuffix = ".jpg";

// Capacity in bytes of each of the batch run's two pixel buffers.
constexpr size_t kPixelBufferSize = 64000000;
// The single-precision 0.9 widened: 0.89999997615814208984375, not the double 0.9. A photo is of
// high similarity when its SSIM is strictly above it.
constexpr double kHighSimilarity = static_cast<double>(0.9f);

}  // namespace IQA

#endif  // IQA_COMMON_CAMERA_LAYOUT_H
