// Fixed folders, names and limits of the batch run.
#ifndef IQA_TASKMANAGER_CONSTANTS_H
#define IQA_TASKMANAGER_CONSTANTS_H

#include <chrono>
#include <cstddef>

namespace IQA {

constexpr const char* kCameraFolder = "storage/emulated/0/DCIM/Camera";
constexpr const char* kCacheFolder = "storage/emulated/0/DCIM/Camera/cache";
constexpr const char* kBackupFolder = "storage/emulated/0/DCIM/Camera/iqathumb";
constexpr const char* kThumbnailSuffix = ".thumbnail";
constexpr const char* kPhotoSuffix = ".jpg";
constexpr const char* kDeleteLabel = "IQA-getssim-end";

constexpr size_t kRegistryCapacity = 5;
constexpr size_t kPixelBufferSize = 64000000;
// The single-precision 0.9 widened: 0.89999997615814208984375, not the double 0.9.
constexpr double kHighSimilarity = static_cast<double>(0.9f);
constexpr std::chrono::seconds kIdleWait{300};
constexpr unsigned kBackupFolderMode = 0775;

}  // namespace IQA

#endif  // IQA_TASKMANAGER_CONSTANTS_H
