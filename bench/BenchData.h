// Benchmark inputs, made once per process: natural-looking photos of camera sizes, their raw
// thumbnails, camera roots for batch runs, and the floor every batch run is compared with.
#ifndef IQA_BENCH_DATA_H
#define IQA_BENCH_DATA_H

#include <string>
#include <vector>

namespace iqa_bench {

using Bytes = std::vector<unsigned char>;

struct Photo {
    int width;
    int height;
    bool fullChroma;   // 4:4:4; otherwise the encoder's 4:2:0
    bool progressive;  // one scan otherwise
    const char* what;
};

// The camera's 4000 x 3000 4:2:0 photo first, then a 4:3 12 MP 4:4:4 photo, then the first one
// encoded progressive, whose decode a batch run cannot end early.
const std::vector<Photo>& Photos();

// "WxH", with "-progressive" for a progressive photo.
std::string Name(const Photo& photo);

// A folder of the benchmark's own, in memory when the system has a RAM file system: durable
// writes then cost what the library computes, not what the disk takes to answer an fsync.
const std::string& WorkDir();

const Bytes& PhotoRgb(const Photo& photo);
const std::string& PhotoJpegPath(const Photo& photo);
const Bytes& PhotoDecoded(const Photo& photo);

// A raw thumbnail of the photo at width x height, reduced the way the camera does.
Bytes ThumbnailRgb(const Photo& photo, int width, int height);
std::string ThumbnailPath(const Photo& photo, int width, int height);

// A camera root with kBatch copies of the photo (with a trailer) and matching thumbnails; the
// thumbnails are put back before every run, since a run consumes them.
class CameraRoot {
  public:
    static constexpr int kBatch = 5;
    CameraRoot(const Photo& photo, int thumbWidth, int thumbHeight);
    static std::string Name(int i);
    void Restock() const;
    const std::string& root() const { return root_; }

  private:
    std::string root_;
    std::string thumbnail_;
};

// Where the floor's decoder reads the file from: kMemory reads the whole file with one call and
// decodes from memory, kStdio is libjpeg's stdio reader, 4 KiB a call. Which is faster depends on
// the machine and even on the process (the same decode can differ by a quarter with where
// libjpeg's own buffers land), so iqa_ratio times both and takes the faster as the floor.
enum class FloorSource { kMemory, kStdio };

// What a floor decode reuses from one call to the next, so that no call faults memory in.
struct FloorBuffers {
    Bytes file;
    Bytes pixels;
    Bytes strip;  // the region decode's own, so that neither decode resizes the other's
};

// The floor: a bare libjpeg decode of every row of the file into a full-size buffer, 32 rows a
// call, with the settings that give the library's pixels.
void FloorDecode(const std::string& path, FloorSource source, FloorBuffers* buffers);

// The least a batch run can cost, whatever the library does: libjpeg decoding only the columns
// [0, width) and rows [0, height) whose reduced bytes the SSIM reads, cropped as the library does
// it, batch after batch into one small strip whose rows start off a 16-byte boundary (so that
// libjpeg writes them into the cache), and then stopping.
void RegionDecode(const std::string& path, FloorSource source, int width, int height,
                  FloorBuffers* buffers);

}  // namespace iqa_bench

#endif  // IQA_BENCH_DATA_H
