// Fixed names and limits of the task manager; the camera's layout is in common/CameraLayout.h.
#ifndef IQA_TASKMANAGER_CONSTANTS_H
#define IQA_TASKMANAGER_CONSTANTS_H

#include <chrono>
#include <cstddef>

#include "common/CameraLayout.h"

namespace IQA {

constexpr const char* kDeleteLabel = "IQA-getssim-end";

constexpr size_t kRegistryCapacity = 5;
constexpr std::chrono::seconds kIdleWait{300};

}  // namespace IQA

#endif  // IQA_TASKMANAGER_CONSTANTS_H
