// The camera's file formats as the host programs and tests write and read them: raw thumbnails,
// JPEG photos and the trailer of records at the end of a photo file.
#ifndef IQA_TOOLS_FILES_CAMERA_FILES_H
#define IQA_TOOLS_FILES_CAMERA_FILES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "upload/PhotoLayout.h"
#include "upload/PhotoTrailer.h"

namespace iqa_tools {

using Bytes = std::vector<unsigned char>;

struct Size {
    int width = 0;
    int height = 0;
};

// An RGB image, 3 bytes a pixel, rows packed.
struct Image {
    int width = 0;
    int height = 0;
    Bytes rgb;
};

constexpr size_t kThumbnailHeaderSize = 16;

// Reads a whole regular file; a folder, FIFO or device is refused without waiting on it. On
// failure *why (when given) says what went wrong.
bool ReadWholeFile(const std::string& path, Bytes* bytes, std::string* why = nullptr);
// What errno says of the last failed read or write of a whole file, in words.
std::string FileError();
// Creates or replaces a regular file; false (errno set) for a folder, FIFO or device.
bool WriteWholeFile(const std::string& path, const Bytes& bytes);
// Writes the file whole under a temporary name beside it, then moves it into place, so that no
// one ever sees half of it. Without replace an existing file stays as it is and errno is EEXIST.
bool PublishFile(const std::string& path, const Bytes& bytes, bool replace);

// Raw thumbnail: 8 bytes the decoder ignores, width and height (int32 little-endian), then
// width x height pixels of 4 bytes (R, G, B, unused). rgb holds 3 bytes a pixel.
Bytes ThumbnailFile(int width, int height, const Bytes& rgb);

struct JpegOptions {
    bool progressive = false;
    int restartInterval = 0;  // MCUs between restart markers; 0 for none
    bool fullChroma = false;  // 4:4:4 instead of the encoder's 4:2:0
};

// JPEG of RGB (components 3), greyscale (1) or CMYK (4) pixels; baseline 4:2:0 by default.
Bytes EncodeJpeg(const Bytes& pixels, int width, int height, int components, int quality,
                 const JpegOptions& options = {});

// A multi-picture photo as phones write one: the primary JPEG with an APP2 "MPF\0" index put
// behind its leading APPn segments, then each further image back to back behind the primary's
// EOI. The index is a TIFF structure: its byte-order mark, the IFD 8 bytes on with version,
// count and entries tags, and the 16-byte entries kPictureEntriesAt bytes after the mark, the
// primary's (attribute 0x20030000, offset 0) first, then each further image's.
struct FurtherImage {
    uint32_t attribute;  // 0 for a gain map (its index calls it undefined), 0x020002 for depth
    Bytes jpeg;
};
struct MultiPictureOptions {
    bool bigEndian = false;
    uint32_t primarySizeError = 0;  // added to the primary's size, as sloppy writers do
    bool imageListFirst = false;    // the image list as the index's first tag, out of tag order
};
constexpr size_t kPictureEntriesAt = 50;
Bytes MultiPictureJpeg(const Bytes& primary, const std::vector<FurtherImage>& further,
                       const MultiPictureOptions& options = {});

// Decodes a JPEG held in memory to RGB; false if libjpeg rejects it. With a largest denominator
// d (a power of two up to 8), libjpeg's DCT scaling decodes at the smallest of 1/d, 1/(d/2), ...,
// 1 that still gives at least `atLeast`: a cheap view for a page, not the library's pixels.
bool DecodeJpeg(const Bytes& jpeg, Bytes* rgb, int* width, int* height, const Size& atLeast = {},
                int largestDenominator = 1);

// Each record (payload, data header with its length and tag), then the other data and the
// 24-byte file header: the other data's length, then the 20 bytes "CAMERA-TRAILER v1.00".
Bytes Trailer(const std::vector<std::pair<std::string, Bytes>>& records, const Bytes& other);

using TrailerRecord = IQA::TrailerRecord;
using PhotoImage = IQA::PhotoImage;
// The image descriptor that ends a custom-buffer record's payload.
using Descriptor = IQA::ImageDescriptor;

struct TrailerListing {
    uint64_t size = 0;  // the file's
    IQA::LayoutStatus status = IQA::LayoutStatus::kNotJpeg;
    std::vector<PhotoImage> images;  // the primary first; none when the file holds no JPEG
    uint64_t imageEnd = 0;           // where the last image ends
    uint32_t otherLength = 0;
    std::vector<TrailerRecord> records;  // the file's last record first
    // Per record, the descriptor its payload ends in, when it is long enough for one whose size
    // field accounts for the rest of it.
    std::vector<std::optional<Descriptor>> descriptors;
    std::string problem;  // empty when the trailer was read to its start
};

// Finds the images and walks the trailer from the file header back to the end of the last one,
// as the library does before it writes. Returns false when the file has no whole trailer;
// listing->problem says why, and the images and records read before the break are kept.
bool ReadTrailer(IQA::ByteSource& file, TrailerListing* listing);
bool ReadTrailer(const Bytes& file, TrailerListing* listing);

// What an image is: its index's word for it, "primary" for an unindexed first image, or
// "appended JPEG" for a stream that follows without an index.
std::string ImageKind(const TrailerListing& listing, size_t image);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_FILES_CAMERA_FILES_H
