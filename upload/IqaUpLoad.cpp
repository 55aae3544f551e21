// The dump of a custom buffer into a photo's trailer, and the big-data report of an anomaly.
#include "IqaUpLoad.h"

#include <algorithm>
#include <cerrno>

#include "McsService.h"
#include "common/ByteSource.h"
#include "common/FileCalls.h"
#include "common/IqaLog.h"
#include "common/MallocBlock.h"
#include "common/ResolvedPath.h"
#include "common/SafeCopy.h"
#include "upload/DumpJournal.h"
#include "upload/PhotoLayout.h"
#include "upload/PhotoTrailer.h"

namespace IQA {

namespace {

constexpr const char* kOperation = "SaveCustomBuffer";  // the dump's helpers log for it
constexpr int kBigDataEventId = 8;

static_assert(sizeof(ImageDumpExpand) == kDescriptorSize, "written into photos byte for byte");

// The photo's folder and file name, from its resolved path.
struct PhotoPlace {
    std::string folder;
    std::string name;
};

PhotoPlace Place(const std::string& resolved) {
    const size_t slash = resolved.rfind('/');
    return {resolved.substr(0, slash), resolved.substr(slash + 1)};
}

// A JPEG photo's trailer is whole only when its record chain closes exactly where its images
// end; other files keep the header checks alone. Says why when it is not.
bool TrailerWhole(ByteSource& photo, const std::string& path) {
    PhotoLayout layout;
    switch (ReadPhotoLayout(photo, &layout)) {
        case LayoutStatus::kWhole:
        case LayoutStatus::kNotJpeg:
            return true;
        case LayoutStatus::kDamaged:
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                       "IqaUpLoad SaveBuffer: damaged trailer, not written: %s.", path.c_str());
            return false;
        case LayoutStatus::kUnknownImages:
            break;
    }
    IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
               "IqaUpLoad SaveBuffer: unknown image data, not written: %s (%s).", path.c_str(),
               layout.problem);
    return false;
}

// Copies a custom buffer of any size: the bounded copy refuses more than RSIZE_MAX_MEM bytes
// at once, and a refused copy must never leave an unwritten gap in a record bound for a photo.
void CopyCustomBuffer(unsigned char* block, const unsigned char* buffer, size_t size) {
    for (size_t done = 0; done < size;) {
        const size_t chunk = std::min<size_t>(size - done, RSIZE_MAX_MEM);
        IQA_CHECK_COPY_AS(kTagUpLoad, kOperation,
                          memcpy_s(block + done, chunk, buffer + done, chunk));
        done += chunk;
    }
}

// The new record: custom buffer, descriptor and data header, then the old tail read back from
// the file. Returns false if the tail could not be read whole.
bool FillRecord(int photo, const TrailerTail& tail, const unsigned char* buffer,
                ImageDumpExpand* descriptor, unsigned char* block) {
    const size_t size = static_cast<size_t>(descriptor->size);
    CopyCustomBuffer(block, buffer, size);
    IQA_CHECK_COPY_AS(kTagUpLoad, kOperation,
                      memcpy_s(block + size, kDescriptorSize, descriptor, kDescriptorSize));
    char head[kTagSize];
    IQA_CHECK_COPY_AS(kTagUpLoad, kOperation, memset_s(head, sizeof(head), 0, sizeof(head)));
    if (strncpy_s(head, sizeof(head), descriptor->algoname, sizeof(head) - 1) != 0) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation, "%s failed",
                   "strncpy_s(dataHeader->head, sizeof(dataHeader->head), "
                   "imageDumpExpand->algoname, sizeof(dataHeader->head)-1)");
    }
    EncodeDataHeader(static_cast<uint32_t>(size + kDescriptorSize), head,
                     block + size + kDescriptorSize);
    unsigned char* oldTail = block + size + kDescriptorSize + kDataHeaderSize;
    return ReadFully(photo, static_cast<uint64_t>(tail.offset), oldTail,
                     static_cast<size_t>(tail.length));
}

bool OutOfSpace(int error) {
    return error == ENOSPC || error == EFBIG || error == EDQUOT;
}

// Reserves the space, journals the new tail, writes it into the photo and commits, logging how
// the photo ended up: unchanged, holding the record, or completed by the next recovery.
void InsertRecord(int photo, const PhotoPlace& place, const TrailerTail& tail,
                  const MallocBlock& block, const std::string& path) {
    const uint64_t growth = block.size() - static_cast<uint64_t>(tail.length);
    JournalHeader header = {static_cast<uint64_t>(tail.fileLength),
                            static_cast<uint64_t>(tail.offset), 0, block.size()};
    Journal journal(place.folder, place.name);
    if (!ReserveSpace(photo, static_cast<uint64_t>(tail.fileLength), growth) ||
        !IdentifyPhoto(photo, &header) || !journal.Write(header, block.get())) {
        if (OutOfSpace(errno)) {
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                       "IqaUpLoad SaveBuffer: no space to grow %s.", path.c_str());
        } else {
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                       "IqaUpLoad SaveBuffer: Failed to write %s, it is unchanged.", path.c_str());
        }
        return;
    }
    // A second try outlasts a passing error; a lasting one leaves the journal to recovery.
    const uint64_t offset = static_cast<uint64_t>(tail.offset);
    if (!ApplyTail(photo, offset, block.get(), block.size()) &&
        !ApplyTail(photo, offset, block.get(), block.size())) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                   "IqaUpLoad SaveBuffer: Failed to write %s, the next recovery completes it.",
                   path.c_str());
        return;
    }
    journal.Remove();  // if it stays, replaying it changes nothing
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagUpLoad, kOperation, "save custombuffer in %s.", path.c_str());
}

// The trailer's two nearest headers point inside the file and its record chain is whole;
// otherwise the photo is not written, with the line that says why.
bool TrailerChecksOut(int photo, const std::string& path, TrailerTail* tail) {
    FileSource source(photo, static_cast<uint64_t>(std::max<int64_t>(0, FileLength(photo))));
    switch (LocateLastRecord(source, tail)) {
        case TrailerStatus::kNoFileHeader:
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                       "IqaUpLoad SaveBuffer: Failed to read file header: %s.", path.c_str());
            return false;
        case TrailerStatus::kNoDataHeader:
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                       "IqaUpLoad SaveBuffer: Failed to read ctrace header: %s.", path.c_str());
            return false;
        case TrailerStatus::kOutside:  // not a trailer this system can extend; nothing to say
            return false;
        case TrailerStatus::kFound:
            break;
    }
    return TrailerWhole(source, path);
}

// A custom buffer to insert, no earlier record still pending, and room to grow.
bool RecordMayGoIn(const PhotoPlace& place, const std::string& path, const unsigned char* buffer,
                   const ImageDumpExpand* descriptor, const TrailerTail& tail) {
    if (descriptor == nullptr || descriptor->size < 0 ||
        (buffer == nullptr && descriptor->size > 0)) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                   "IqaUpLoad SaveBuffer: no custom buffer for %s.", path.c_str());
        return false;
    }
    if (!PendingJournal(place.folder, place.name).empty()) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                   "IqaUpLoad SaveBuffer: an earlier record is still pending in %s.", path.c_str());
        return false;
    }
    const int64_t growth = descriptor->size + kDescriptorSize + kDataHeaderSize;
    if (!WithinFileSizeLimit(static_cast<uint64_t>(tail.fileLength + growth))) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, kOperation,
                   "IqaUpLoad SaveBuffer: no space to grow %s.", path.c_str());
        return false;
    }
    return true;
}

}  // namespace

IqaUpLoad::IqaUpLoad() = default;
IqaUpLoad::~IqaUpLoad() = default;

void IqaUpLoad::SaveCustomBuffer(const std::string& path, const unsigned char* buffer,
                                 ImageDumpExpand* imageDumpExpand) {
    const ResolvedPath resolved(path.c_str());
    if (!resolved.ok) {
        IQA_LOGE(kTagUpLoad, "Failed to resolve path.");
        return;
    }
    IQA_LOGI(kTagUpLoad, "Resolved path:%s ", resolved.path);
    const PhotoPlace place = Place(resolved.path);
    RecoverDumps(place.folder);  // a photo torn by an earlier crash is completed first
    const ScopedFd photo(OpenRegularFile(resolved.path, O_RDWR));
    if (photo.get() < 0) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: can't open %s", path.c_str());
        return;
    }
    // Held until the photo is closed, after the commit: a dump of another process or thread
    // waits, then finds the photo as this one leaves it.
    if (!LockExclusive(photo.get())) {
        IQA_LOGE(kTagUpLoad,
                 "IqaUpLoad SaveBuffer: %s is being written by another dump, not written.",
                 path.c_str());
        return;
    }
    TrailerTail tail{};
    if (!TrailerChecksOut(photo.get(), path, &tail) ||
        !RecordMayGoIn(place, path, buffer, imageDumpExpand, tail)) {
        return;
    }
    MallocBlock block(static_cast<size_t>(imageDumpExpand->size + kDescriptorSize +
                                          kDataHeaderSize + tail.length));
    if (!block) {
        IQA_LOGE(kTagUpLoad, "memory allocation failed");
        return;
    }
    if (!FillRecord(photo.get(), tail, buffer, imageDumpExpand, block.get())) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: Failed to read file tail: %s.", path.c_str());
        return;
    }
    InsertRecord(photo.get(), place, tail, block, path);
}

void IqaUpLoad::UpLoadBigData(const std::string& jpegName, unsigned char anomType) {
    BigDataRecord record;
    record.timestamp = MCS::GetCurrentMilliSeconds();
    IQA_CHECK_COPY(kTagUpLoad,
                   memset_s(record.jpegName, sizeof(record.jpegName), 0, sizeof(record.jpegName)));
    record.anomType = anomType;
    if (strncpy_s(record.jpegName, sizeof(record.jpegName), jpegName.c_str(),
                  sizeof(record.jpegName) - 1) != 0) {
        IQA_LOGE(kTagUpLoad, "%s failed",
                 "strncpy_s(record.jpegName, sizeof(record.jpegName), jpegName.c_str(), "
                 "sizeof(record.jpegName) - 1)");
    }
    MCS::MCSService* service = MCS::GetMCSInstance();
    if (service != nullptr) {
        const int eventId = kBigDataEventId;
        service->UploadEvent(eventId, record);
    }
    IQA_LOGI(kTagUpLoad, "upload bigdata of %s.", jpegName.c_str());
}

}  // namespace IQA
