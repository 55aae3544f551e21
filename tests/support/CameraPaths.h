// The camera folder layout the batch run works on, relative to the working directory.
#ifndef IQA_TESTS_CAMERA_PATHS_H
#define IQA_TESTS_CAMERA_PATHS_H

#include <string>

namespace iqa_test {

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

}  // namespace iqa_test

#endif  // IQA_TESTS_CAMERA_PATHS_H
