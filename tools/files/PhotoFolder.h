// The JPEG photos under a folder, as a camera folder pulled from a phone holds them: found
// recursively, in a stable order, without ever failing on what the folder holds.
#ifndef IQA_TOOLS_FILES_PHOTO_FOLDER_H
#define IQA_TOOLS_FILES_PHOTO_FOLDER_H

#include <string>
#include <vector>

namespace iqa_tools {

struct PhotoFolder {
    // Paths relative to the folder, each folder's entries in byte order of their names, a
    // subfolder's photos where its name sorts. A photo is a regular file (or a link to one)
    // whose name ends in .jpg or .jpeg in any case.
    std::vector<std::string> photos;
    // One line for each thing that could not be read: an unreadable folder, a broken link, a
    // link that leads back into a folder being walked (a loop), a photo that is no regular file.
    std::vector<std::string> problems;
};

// False (with why) only when `dir` itself is no folder that can be read.
bool FindPhotos(const std::string& dir, PhotoFolder* found, std::string* why);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_PHOTO_FOLDER_H
