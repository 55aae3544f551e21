// The device service library's interface as this project uses it. On a device the vendor's
// library provides these symbols; elsewhere the stand-in built from this folder does.
#ifndef MCS_SERVICE_H
#define MCS_SERVICE_H

#include <cstdint>

namespace IQA {
struct BigDataRecord;
}

namespace MCS {

// The process-wide service object. Only UploadEvent is used; it is the seventh operation of the
// virtual table, so the six operations before it are declared as placeholders to keep it there.
class MCSService {
  public:
    virtual int Reserved1();
    virtual int Reserved2();
    virtual int Reserved3();
    virtual int Reserved4();
    virtual int Reserved5();
    virtual int Reserved6();
    // Takes both arguments for the length of the call only; must accept calls from any thread.
    virtual int UploadEvent(const int& eventId, const IQA::BigDataRecord& record);
    virtual ~MCSService();
};

// The installed service object, or null when the service is not available. Not owned.
MCSService* GetMCSInstance();

// Wall-clock time in milliseconds since the epoch.
int64_t GetCurrentMilliSeconds();

// Stand-in only: installs (or, with null, removes) the object GetMCSInstance returns. The
// object must outlive its installation.
void SetMCSInstance(MCSService* service);

}  // namespace MCS

#endif  // MCS_SERVICE_H
