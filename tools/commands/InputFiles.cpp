// The inputs the commands read: whole files, and the camera root to work in, with the reasons
// the commands give when they cannot.
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"

namespace iqa_tools {

bool ReadInputFile(const std::string& path, Bytes* bytes, Failure* failure) {
    std::string why;
    if (ReadWholeFile(path, bytes, &why)) {
        return true;
    }
    failure->reason = "cannot read " + path + ": " + why;
    failure->missing = access(path.c_str(), F_OK) != 0 && errno == ENOENT;
    return false;
}

bool ReadInput(const char* command, const std::string& path, std::vector<unsigned char>* bytes) {
    Failure failure;
    if (ReadInputFile(path, bytes, &failure)) {
        return true;
    }
    fprintf(stderr, "iqa %s: %s\n", command, failure.reason.c_str());
    return false;
}

bool EnterCameraRoot(const char* command, const std::string& dir) {
    if (chdir(dir.c_str()) == 0 && access(kCameraFolder, F_OK) == 0) {
        return true;
    }
    fprintf(stderr, "iqa %s: %s has no camera folder %s\n", command, dir.c_str(), kCameraFolder);
    return false;
}

}  // namespace iqa_tools
