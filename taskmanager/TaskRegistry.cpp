// The registry of photo names waiting for the next batch run. Owned by the worker thread; the
// host only reads the atomic count of names.
#include <algorithm>

#include "IqaTaskManager.h"
#include "common/IqaLog.h"

namespace IQA {

namespace {

// Names a batch run takes at most.
constexpr size_t kRegistryCapacity = 5;

bool Listed(const std::vector<std::string>& list, const std::string& name) {
    // Compared in C-string form, up to the first NUL.
    const std::string key(name.c_str());
    return std::find(list.begin(), list.end(), key) != list.end();
}

// A name becomes a file name inside the camera folders; it must not lead out of them.
bool PlainName(const std::string& name) {
    const std::string key(name.c_str());
    return key.find('/') == std::string::npos && key != "." && key != "..";
}

}  // namespace

void IqaTaskManager::RegisterTask(const std::string& name) {
    IQA_LOGI(kTagTaskManager, "begin RegisterTask");
    if (!PlainName(name)) {
        IQA_LOGE(kTagTaskManager, "Task name is not a file name. Cannot register task: %s",
                 name.c_str());
        return;
    }
    if (taskList.size() >= kRegistryCapacity) {
        IQA_LOGI(kTagTaskManager, "Task list is full. Cannot register task: %s", name.c_str());
        return;
    }
    if (Listed(taskList, name)) {
        IQA_LOGI(kTagTaskManager, "Task existed: %s ", name.c_str());
    } else {
        PushTask(name);
    }
    IQA_LOGI(kTagTaskManager, "Task registered: %s , task nums: %lu", name.c_str(),
             static_cast<unsigned long>(taskList.size()));
}

void IqaTaskManager::AddTask(const std::string& name) {
    if (!PlainName(name)) {
        IQA_LOGE(kTagTaskManager, "Task name is not a file name. Cannot add task: %s",
                 name.c_str());
        return;
    }
    if (Listed(taskList, name)) {
        IQA_LOGI(kTagTaskManager, "Task existed: %s ", name.c_str());
        return;
    }
    PushTask(name);
}

void IqaTaskManager::PushTask(const std::string& name) {
    taskList.emplace_back(name.c_str());
    taskCount.store(taskList.size());
}

std::string IqaTaskManager::PopTask() {
    std::string name = taskList.back();
    taskList.pop_back();
    taskCount.store(taskList.size());
    return name;
}

void IqaTaskManager::SetTaskList(std::vector<std::string> names) {
    taskList = std::move(names);
    taskCount.store(taskList.size());
}

}  // namespace IQA
