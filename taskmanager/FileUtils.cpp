// The thumbnail backup and the small file utilities of the batch run.
#include <sys/stat.h>

#include "IqaTaskManager.h"
#include "common/CameraLayout.h"
#include "common/FileCalls.h"
#include "common/IqaLog.h"

bool IsFileExists(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

void RemoveFile(const std::string& path, const std::string& label) {
    if (IQA::RemoveEntry(path.c_str())) {
        IQA_LOGI(IQA::kTagUtils, " %s ok(%s)", path.c_str(), label.c_str());
    } else {
        IQA_LOGI(IQA::kTagUtils, " %s failed(%s)", path.c_str(), label.c_str());
    }
}

namespace IQA {

void IqaTaskManager::CopyThumbs(const std::string& thumbPath, const std::string& destFolder,
                                const std::string& name) {
    IQA_LOGI(kTagTaskManager, "begin back up");
    if (!IsFileExists(destFolder) && !MakeFolder(destFolder.c_str(), kBackupFolderMode)) {
        IQA_LOGE(kTagTaskManager, "Failed to create destination directory.");
        return;
    }
    const std::string target = destFolder + "/" + name + kThumbnailSuffix;
    if (RenameFile(thumbPath.c_str(), target.c_str())) {
        IQA_LOGI(kTagTaskManager, "back up successfully");
    } else {
        IQA_LOGE(kTagTaskManager, "Failed to back up.");
    }
}

}  // namespace IQA
