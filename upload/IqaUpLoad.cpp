// The dump of a custom buffer into a photo's trailer, and the big-data report of an anomaly.
#include "IqaUpLoad.h"

#include <algorithm>
#include <cerrno>

#include "ByteSource.h"
#include "DumpJournal.h"
#include "FileCalls.h"
#include "IqaLog.h"
#include "JpegStream.h"
#include "MallocBlock.h"
#include "McsService.h"
#include "PhotoTrailer.h"
#include "ResolvedPath.h"
#include "SafeCopy.h"

namespace IQA {

namespace {

constexpr int64_t kDescriptorSize = sizeof(ImageDumpExpand);
constexpr int kBigDataEventId = 8;

struct DataHeader {
    uint32_t length;
    char head[8];
};
static_assert(sizeof(DataHeader) == kDataHeaderSize, "file format: 12-byte data header");

// The photo's folder and file name, from its resolved path.
struct PhotoPlace {
    std::string folder;
    std::string name;
};

PhotoPlace Place(const std::string& resolved) {
    const size_t slash = resolved.rfind('/');
    return {resolved.substr(0, slash), resolved.substr(slash + 1)};
}

// A JPEG photo's trailer is whole only when its record chain closes exactly where the JPEG
// stream ends; other files keep the header checks alone.
bool TrailerWhole(ByteSource& photo) {
    uint64_t imageEnd = 0;
    switch (FindJpegEnd(photo, &imageEnd)) {
        case JpegEnd::kNotJpeg:
            return true;
        case JpegEnd::kNoEnd:
            return false;
        case JpegEnd::kFound:
            break;
    }
    TrailerChain chain;
    return WalkTrailer(photo, imageEnd, &chain);
}

// Copies a custom buffer of any size: the bounded copy refuses more than RSIZE_MAX_MEM bytes
// at once, and a refused copy must never leave an unwritten gap in a record bound for a photo.
void CopyCustomBuffer(unsigned char* block, const unsigned char* buffer, size_t size) {
    for (size_t done = 0; done < size;) {
        const size_t chunk = std::min<size_t>(size - done, RSIZE_MAX_MEM);
        IQA_CHECK_COPY_AS(kTagUpLoad, "SaveCustomBuffer",
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
    IQA_CHECK_COPY_AS(kTagUpLoad, "SaveCustomBuffer",
                      memcpy_s(block + size, kDescriptorSize, descriptor, kDescriptorSize));
    // Built aside and copied in: the header's place in the block has no 4-byte alignment.
    DataHeader header;
    IQA_CHECK_COPY_AS(kTagUpLoad, "SaveCustomBuffer",
                      memset_s(&header, sizeof(header), 0, sizeof(header)));
    header.length = static_cast<uint32_t>(size + kDescriptorSize);
    if (strncpy_s(header.head, sizeof(header.head), descriptor->algoname,
                  sizeof(header.head) - 1) != 0) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, "SaveCustomBuffer", "%s failed",
                   "strncpy_s(dataHeader->head, sizeof(dataHeader->head), "
                   "imageDumpExpand->algoname, sizeof(dataHeader->head)-1)");
    }
    IQA_CHECK_COPY_AS(
        kTagUpLoad, "SaveCustomBuffer",
        memcpy_s(block + size + kDescriptorSize, kDataHeaderSize, &header, sizeof(header)));
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
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, "SaveCustomBuffer",
                       "IqaUpLoad SaveBuffer: no space to grow %s.", path.c_str());
        } else {
            IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, "SaveCustomBuffer",
                       "IqaUpLoad SaveBuffer: Failed to write %s, it is unchanged.", path.c_str());
        }
        return;
    }
    // A second try outlasts a passing error; a lasting one leaves the journal to recovery.
    const uint64_t offset = static_cast<uint64_t>(tail.offset);
    if (!ApplyTail(photo, offset, block.get(), block.size()) &&
        !ApplyTail(photo, offset, block.get(), block.size())) {
        IQA_LOG_OP(ANDROID_LOG_ERROR, kTagUpLoad, "SaveCustomBuffer",
                   "IqaUpLoad SaveBuffer: Failed to write %s, the next recovery completes it.",
                   path.c_str());
        return;
    }
    journal.Remove();  // if it stays, replaying it changes nothing
    IQA_LOG_OP(ANDROID_LOG_INFO, kTagUpLoad, "SaveCustomBuffer", "save custombuffer in %s.",
               path.c_str());
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
    if (!LockExclusive(photo.get(), kPhotoLockWait)) {
        IQA_LOGE(kTagUpLoad,
                 "IqaUpLoad SaveBuffer: %s is being written by another dump, not written.",
                 path.c_str());
        return;
    }
    FileSource source(photo.get(),
                      static_cast<uint64_t>(std::max<int64_t>(0, FileLength(photo.get()))));
    TrailerTail tail{};
    switch (LocateLastRecord(source, &tail)) {
        case TrailerStatus::kNoFileHeader:
            IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: Failed to read file header: %s.",
                     path.c_str());
            return;
        case TrailerStatus::kNoDataHeader:
            IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: Failed to read ctrace header: %s.",
                     path.c_str());
            return;
        case TrailerStatus::kOutside:  // not a trailer this system can extend; nothing to say
            return;
        case TrailerStatus::kFound:
            break;
    }
    if (!TrailerWhole(source)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: damaged trailer, not written: %s.",
                 path.c_str());
        return;
    }
    if (imageDumpExpand == nullptr || imageDumpExpand->size < 0 ||
        (buffer == nullptr && imageDumpExpand->size > 0)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: no custom buffer for %s.", path.c_str());
        return;
    }
    if (JournalPending(place.folder, place.name)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: an earlier record is still pending in %s.",
                 path.c_str());
        return;
    }
    const int64_t growth = imageDumpExpand->size + kDescriptorSize + kDataHeaderSize;
    if (!WithinFileSizeLimit(static_cast<uint64_t>(tail.fileLength + growth))) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: no space to grow %s.", path.c_str());
        return;
    }
    MallocBlock block(static_cast<size_t>(growth + tail.length));
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
