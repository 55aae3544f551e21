// A service object that keeps every event it receives, for tests and the host tools.
#ifndef MCS_RECORDING_SERVICE_H
#define MCS_RECORDING_SERVICE_H

#include <mutex>
#include <vector>

#include "IqaUpLoad.h"
#include "McsService.h"

namespace MCS {

class RecordingService : public MCSService {
  public:
    struct Event {
        int eventId;
        IQA::BigDataRecord record;
    };

    int UploadEvent(const int& eventId, const IQA::BigDataRecord& record) override;
    std::vector<Event> Events() const;

  private:
    mutable std::mutex mutex_;
    std::vector<Event> events_;
};

// Installs a service for the lifetime of the scope and removes it afterwards.
class ScopedService {
  public:
    explicit ScopedService(MCSService* service) { SetMCSInstance(service); }
    ~ScopedService() { SetMCSInstance(nullptr); }
    ScopedService(const ScopedService&) = delete;
    ScopedService& operator=(const ScopedService&) = delete;
};

}  // namespace MCS

#endif  // MCS_RECORDING_SERVICE_H
