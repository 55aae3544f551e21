// The recursive walk over a photo folder, with the folders being walked kept to catch loops.
#include "tools/files/PhotoFolder.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <utility>

namespace iqa_tools {

namespace {

using FolderId = std::pair<dev_t, ino_t>;

bool IsPhotoName(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const std::string suffix : {".jpg", ".jpeg"}) {
        if (name.size() > suffix.size() &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            return true;
        }
    }
    return false;
}

// The entries of a folder but "." and "..", sorted; false with errno set when it cannot be read.
bool Entries(const std::string& folder, std::vector<std::string>* names) {
    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) {
        return false;
    }
    errno = 0;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names->push_back(name);
        }
    }
    const int error = errno;
    closedir(dir);
    std::sort(names->begin(), names->end());
    errno = error;
    return error == 0;
}

class Walk {
  public:
    Walk(const std::string& root, PhotoFolder* found) : root_(root), found_(found) {}

    void Folder(const std::string& relative, const FolderId& id) {
        const std::string path = relative.empty() ? root_ : root_ + "/" + relative;
        std::vector<std::string> names;
        if (!Entries(path, &names)) {
            found_->problems.push_back("cannot read " + Shown(relative) + ": " + strerror(errno));
            return;
        }
        walking_.push_back({id, relative});
        for (const std::string& name : names) {
            Entry(relative.empty() ? name : relative + "/" + name);
        }
        walking_.pop_back();
    }

  private:
    std::string Shown(const std::string& relative) const {
        return relative.empty() ? root_ : relative;
    }

    void Entry(const std::string& relative) {
        struct stat status = {};
        if (stat((root_ + "/" + relative).c_str(), &status) != 0) {  // follows links
            found_->problems.push_back("cannot read " + relative + ": " + strerror(errno));
            return;
        }
        if (S_ISDIR(status.st_mode)) {
            const FolderId id{status.st_dev, status.st_ino};
            const auto loop = std::find_if(walking_.begin(), walking_.end(),
                                           [&](const auto& w) { return w.first == id; });
            if (loop != walking_.end()) {
                found_->problems.push_back(relative + " leads back to " + Shown(loop->second) +
                                           " (a folder loop), not followed");
                return;
            }
            Folder(relative, id);
        } else if (IsPhotoName(relative)) {
            if (S_ISREG(status.st_mode)) {
                found_->photos.push_back(relative);
            } else {
                found_->problems.push_back("cannot read " + relative + ": not a regular file");
            }
        }
    }

    std::string root_;
    PhotoFolder* found_;
    std::vector<std::pair<FolderId, std::string>> walking_;
};

}  // namespace

bool FindPhotos(const std::string& dir, PhotoFolder* found, std::string* why) {
    *found = PhotoFolder();
    struct stat status = {};
    if (stat(dir.c_str(), &status) != 0) {
        *why = "cannot read " + dir + ": " + strerror(errno);
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        *why = "cannot read " + dir + ": not a folder";
        return false;
    }
    Walk(dir, found).Folder("", {status.st_dev, status.st_ino});
    return true;
}

}  // namespace iqa_tools
