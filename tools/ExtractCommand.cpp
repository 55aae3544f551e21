// iqa extract: turns the NV12 preview of a photo's newest Iqa_com record into a viewable image.
#include <cstdio>

#include "CameraFiles.h"
#include "Commands.h"
#include "Nv12Image.h"

namespace iqa_tools {

namespace {

constexpr const char* kUsage =
    "usage: iqa extract PHOTO OUT\n"
    "\n"
    "Converts the NV12 preview stored in PHOTO's most recent \"Iqa_com\" record into OUT: a PPM\n"
    "image when OUT ends in .ppm, a JPEG otherwise.\n";

bool EndsWith(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool WriteImage(const std::string& path, const Bytes& rgb, int width, int height) {
    if (!EndsWith(path, ".ppm")) {
        return WriteWholeFile(path, EncodeJpeg(rgb, width, height, 3, 95));
    }
    const std::string header =
        "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
    Bytes ppm(header.begin(), header.end());
    ppm.insert(ppm.end(), rgb.begin(), rgb.end());
    return WriteWholeFile(path, ppm);
}

}  // namespace

int ExtractCommand(const Args& args) {
    if (WantsHelp(args, kUsage)) {
        return 0;
    }
    if (args.size() != 2) {
        return UsageError("extract", "expected a photo file and an output file", kUsage);
    }
    Bytes file;
    if (!ReadPhoto("extract", args[0], &file)) {
        return 1;
    }
    TrailerListing listing;
    ReadTrailer(file, &listing);  // records read before any damage are still usable
    for (const TrailerRecord& r : listing.records) {  // newest dump first
        Descriptor d;
        if (r.tag != "Iqa_com" || !ReadDescriptor(file, r, &d)) {
            continue;
        }
        Bytes rgb;
        if (!Nv12ToRgb(file.data() + r.payloadOffset, d, &rgb)) {
            fprintf(stderr, "iqa extract: the Iqa_com record at %llu is not a %dx%d NV12 image\n",
                    static_cast<unsigned long long>(r.payloadOffset), d.width, d.height);
            return 1;
        }
        if (!WriteImage(args[1], rgb, d.width, d.height)) {
            fprintf(stderr, "iqa extract: cannot write %s: %s\n", args[1].c_str(),
                    FileError().c_str());
            return 1;
        }
        printf("%s: %dx%d preview from the record at %llu\n", args[1].c_str(), d.width, d.height,
               static_cast<unsigned long long>(r.payloadOffset));
        return 0;
    }
    fprintf(stderr, "iqa extract: %s holds no Iqa_com record%s%s\n", args[0].c_str(),
            listing.problem.empty() ? "" : ": ", listing.problem.c_str());
    return 1;
}

}  // namespace iqa_tools
