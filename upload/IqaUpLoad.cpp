// The dump of a custom buffer into a photo's trailer, and the big-data report of an anomaly.
#include "IqaUpLoad.h"

#include <algorithm>

#include "FileGrowth.h"
#include "IqaLog.h"
#include "MallocBlock.h"
#include "McsService.h"
#include "PhotoTrailer.h"
#include "ResolvedPath.h"
#include "SafeCopy.h"
#include "ScopedFile.h"

namespace IQA {

namespace {

constexpr int64_t kDescriptorSize = sizeof(ImageDumpExpand);
constexpr int kBigDataEventId = 8;

struct DataHeader {
    uint32_t length;
    char head[8];
};
static_assert(sizeof(DataHeader) == kDataHeaderSize, "file format: 12-byte data header");

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
bool FillRecord(FILE* file, const TrailerTail& tail, const unsigned char* buffer,
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
    const size_t tailLength = static_cast<size_t>(tail.length);
    return fseeko(file, static_cast<off_t>(tail.offset), SEEK_SET) == 0 &&
           fread(oldTail, 1, tailLength, file) == tailLength;
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
    ScopedFile file(resolved.path, "rb+");
    if (!file) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: can't open %s", path.c_str());
        return;
    }
    TrailerTail tail{};
    switch (LocateLastRecord(file.get(), &tail)) {
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
    if (imageDumpExpand == nullptr || imageDumpExpand->size < 0 ||
        (buffer == nullptr && imageDumpExpand->size > 0)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: no custom buffer for %s.", path.c_str());
        return;
    }
    const int64_t growth = imageDumpExpand->size + kDescriptorSize + kDataHeaderSize;
    MallocBlock block(static_cast<size_t>(growth + tail.length), MallocBlock::Fill::kZero);
    if (!block) {
        IQA_LOGE(kTagUpLoad, "memory allocation failed");
        return;
    }
    const unsigned char* oldTail = block.get() + growth;
    if (!FillRecord(file.get(), tail, buffer, imageDumpExpand, block.get())) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: Failed to read file tail: %s.", path.c_str());
        return;
    }
    if (!ReserveGrowth(file.get(), tail.fileLength, growth)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: no space to grow %s.", path.c_str());
        return;
    }
    if (!WriteDurably(file.get(), tail.offset, block.get(), block.size(), oldTail,
                      static_cast<size_t>(tail.length), tail.fileLength)) {
        IQA_LOGE(kTagUpLoad, "IqaUpLoad SaveBuffer: Failed to write %s.", path.c_str());
        return;
    }
    IQA_LOGI(kTagUpLoad, "save custombuffer in %s.", path.c_str());
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
