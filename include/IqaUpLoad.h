// Custom-buffer records in a photo's trailer, and big-data events to the device service.
#ifndef IQA_UP_LOAD_H
#define IQA_UP_LOAD_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "IqaExport.h"

namespace IQA {

// Descriptor of a custom buffer, written into photo files byte for byte (little-endian).
struct ImageDumpExpand {
    int32_t width;      // pixels
    int32_t height;     // rows
    int32_t stride;     // bytes per luma row
    int32_t size;       // bytes of the custom buffer; the dump copies exactly this many
    int32_t format;     // 1: NV12
    char algoname[30];  // producing algorithm, NUL-terminated, zero-filled
    char reserved[70];  // zero
};

static_assert(sizeof(ImageDumpExpand) == 120, "file format: 120-byte descriptor");
static_assert(offsetof(ImageDumpExpand, width) == 0 && offsetof(ImageDumpExpand, height) == 4 &&
                  offsetof(ImageDumpExpand, stride) == 8 && offsetof(ImageDumpExpand, size) == 12 &&
                  offsetof(ImageDumpExpand, format) == 16 &&
                  offsetof(ImageDumpExpand, algoname) == 20 &&
                  offsetof(ImageDumpExpand, reserved) == 50,
              "file format: descriptor field offsets");

// Event record handed to the device service; its layout is the service's.
#pragma pack(push, 4)
struct BigDataRecord {
    int64_t timestamp;  // milliseconds, from MCS::GetCurrentMilliSeconds()
    char jpegName[25];  // image name, at most 24 characters, NUL-terminated, zero-filled
    uint8_t anomType;   // 0 green screen, 1 black screen
};
#pragma pack(pop)

static_assert(sizeof(BigDataRecord) == 36, "service format: 36-byte record");
static_assert(offsetof(BigDataRecord, timestamp) == 0 && offsetof(BigDataRecord, jpegName) == 8 &&
                  offsetof(BigDataRecord, anomType) == 33,
              "service format: record field offsets");
static_assert(alignof(BigDataRecord) == 4, "packed to 4 bytes");

// Stateless; callers create one per call. Outcomes show only in the log.
class IQA_EXPORT IqaUpLoad {
  public:
    IqaUpLoad();
    ~IqaUpLoad();

    // Inserts buffer (imageDumpExpand->size bytes) and the descriptor as a new record in front
    // of the last record of the trailer of the file at path. The file is changed only when its
    // trailer is whole and the new length could be reserved; otherwise it stays as it was.
    void SaveCustomBuffer(const std::string& path, const unsigned char* buffer,
                          ImageDumpExpand* imageDumpExpand);

    // Reports an anomaly (anomType 0 green, 1 black) of the named image as event 8, when the
    // device service is available.
    void UpLoadBigData(const std::string& jpegName, unsigned char anomType);
};

}  // namespace IQA

#endif  // IQA_UP_LOAD_H
