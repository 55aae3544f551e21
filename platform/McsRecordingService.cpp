// The recording service: a mutex-guarded list of received events.
#include "McsRecordingService.h"

namespace MCS {

int RecordingService::UploadEvent(const int& eventId, const IQA::BigDataRecord& record) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back({eventId, record});
    return 0;
}

std::vector<RecordingService::Event> RecordingService::Events() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

}  // namespace MCS
