// Stand-in for the closed device service library: an installable service object and the clock.
#include "McsService.h"

#include <atomic>
#include <chrono>

namespace MCS {

namespace {
std::atomic<MCSService*> gInstance{nullptr};
}  // namespace

int MCSService::Reserved1() {
    return 0;
}
int MCSService::Reserved2() {
    return 0;
}
int MCSService::Reserved3() {
    return 0;
}
int MCSService::Reserved4() {
    return 0;
}
int MCSService::Reserved5() {
    return 0;
}
int MCSService::Reserved6() {
    return 0;
}
int MCSService::UploadEvent(const int&, const IQA::BigDataRecord&) {
    return 0;
}
MCSService::~MCSService() = default;

MCSService* GetMCSInstance() {
    return gInstance.load();
}

void SetMCSInstance(MCSService* service) {
    gInstance.store(service);
}

int64_t GetCurrentMilliSeconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace MCS
