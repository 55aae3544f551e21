// iqa inspect: lists a photo's trailer from the end backwards. Reads only.
#include <cstdio>

#include "CameraFiles.h"
#include "Commands.h"

namespace iqa_tools {

namespace {

constexpr const char* kUsage =
    "usage: iqa inspect PHOTO\n"
    "\n"
    "Lists the trailer of PHOTO from the end backwards: the other data's length, then each\n"
    "record's offset, payload length and tag, and for payloads that end in an image descriptor\n"
    "(such as Iqa_com records) its width, height, stride, size, format and algorithm name.\n"
    "Exit status 1 when the file has no trailer or its lengths do not fit. Never writes.\n";

}  // namespace

int InspectCommand(const Args& args) {
    if (WantsHelp(args, kUsage)) {
        return 0;
    }
    if (args.size() != 1) {
        return UsageError("inspect", "expected one photo file", kUsage);
    }
    Bytes file;
    if (!ReadPhoto("inspect", args[0], &file)) {
        return 1;
    }
    TrailerListing listing;
    const bool whole = ReadTrailer(file, &listing);
    printf("%s: %zu bytes\n", args[0].c_str(), file.size());
    if (!whole && listing.records.empty()) {
        printf("no trailer: %s\n", listing.problem.c_str());
        return 1;
    }
    printf("file header at %zu, other data: %u bytes\n", file.size() - kFileHeaderSize,
           listing.otherLength);
    for (const TrailerRecord& r : listing.records) {
        printf("record at %llu: %u bytes, tag \"%s\"\n",
               static_cast<unsigned long long>(r.payloadOffset), r.payloadLength, r.tag.c_str());
        Descriptor d;
        if (ReadDescriptor(file, r, &d)) {
            printf("  image %dx%d, stride %d, size %d, format %d, algorithm \"%s\"\n", d.width,
                   d.height, d.stride, d.size, d.format, d.algoname.c_str());
        }
    }
    if (!whole) {
        printf("damaged trailer: %s\n", listing.problem.c_str());
        return 1;
    }
    printf("image data: %llu bytes\n",
           static_cast<unsigned long long>(listing.records.back().payloadOffset));
    return 0;
}

}  // namespace iqa_tools
