// iqa inspect: lists a photo's trailer from the end backwards. Reads only.
#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>

#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/files/CameraFiles.h"

namespace iqa_tools {

namespace {

struct InspectOptions {
    std::string photo;
    bool json = false;
};

}  // namespace

nlohmann::ordered_json InspectDocument(const std::string& path, const TrailerListing& listing) {
    nlohmann::ordered_json records = nlohmann::ordered_json::array();
    for (size_t i = 0; i < listing.records.size(); ++i) {
        const TrailerRecord& r = listing.records[i];
        const std::optional<Descriptor>& d = listing.descriptors[i];
        const nlohmann::ordered_json image =
            d ? nlohmann::ordered_json{{"width", d->width},   {"height", d->height},
                                       {"stride", d->stride}, {"size", d->size},
                                       {"format", d->format}, {"algorithm", d->algoname}}
              : nlohmann::ordered_json(nullptr);
        records.push_back({{"offset", r.payloadOffset},
                           {"length", r.payloadLength},
                           {"tag", r.tag},
                           {"image", image}});
    }
    nlohmann::ordered_json images = nlohmann::ordered_json::array();
    for (size_t i = 0; i < listing.images.size(); ++i) {
        images.push_back({{"offset", listing.images[i].offset},
                          {"length", listing.images[i].length},
                          {"kind", ImageKind(listing, i)}});
    }
    return {{"file", path},
            {"size", listing.size},
            {"images", images},
            {"image_end", listing.imageEnd},
            {"other_data", listing.otherLength},
            {"whole", listing.problem.empty()},
            {"problem", listing.problem.empty() ? nlohmann::ordered_json(nullptr)
                                                : nlohmann::ordered_json(listing.problem)},
            {"records", records}};
}

namespace {

void PrintText(const std::string& path, const TrailerListing& listing) {
    printf("%s: %llu bytes\n", path.c_str(), static_cast<unsigned long long>(listing.size));
    for (size_t i = 0; i < listing.images.size(); ++i) {
        printf("image at %llu: %llu bytes, %s\n",
               static_cast<unsigned long long>(listing.images[i].offset),
               static_cast<unsigned long long>(listing.images[i].length),
               ImageKind(listing, i).c_str());
    }
    if (listing.records.empty()) {
        printf("no trailer: %s\n", listing.problem.c_str());
        return;
    }
    printf("file header at %llu, other data: %u bytes\n",
           static_cast<unsigned long long>(listing.size - IQA::kFileHeaderSize),
           listing.otherLength);
    for (size_t i = 0; i < listing.records.size(); ++i) {
        const TrailerRecord& r = listing.records[i];
        printf("record at %llu: %u bytes, tag \"%s\"\n",
               static_cast<unsigned long long>(r.payloadOffset), r.payloadLength, r.tag.c_str());
        if (const std::optional<Descriptor>& d = listing.descriptors[i]) {
            printf("  image %dx%d, stride %d, size %d, format %d, algorithm \"%s\"\n", d->width,
                   d->height, d->stride, d->size, d->format, d->algoname.c_str());
        }
    }
    if (!listing.problem.empty()) {
        printf("damaged trailer: %s\n", listing.problem.c_str());
        return;
    }
    printf("image data: %llu bytes\n", static_cast<unsigned long long>(listing.imageEnd));
}

int Inspect(const InspectOptions& o) {
    Bytes file;
    if (!ReadInput("inspect", o.photo, &file)) {
        return 1;
    }
    TrailerListing listing;
    const bool whole = ReadTrailer(file, &listing);
    if (o.json) {
        printf("%s\n", InspectDocument(o.photo, listing).dump(2).c_str());
    } else {
        PrintText(o.photo, listing);
    }
    return whole ? 0 : 1;
}

}  // namespace

void AddInspectCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<InspectOptions>();
    CLI::App* command = app.add_subcommand(
        "inspect",
        "List a photo as the library reads it before it writes: its images (the primary JPEG, "
        "then the gain map, depth map or frames its multi-picture index names, and JPEG "
        "streams appended without an index) with offset, length and kind; then its trailer "
        "from the end backwards: the other data's length, each record's offset, payload length "
        "and tag, and for payloads that end in an image descriptor (Iqa_com records) its "
        "width, height, stride, size, format and algorithm. Exit status 1 when the trailer is "
        "not whole (its chain does not close exactly where the last image ends). Never writes.");
    command->add_option("PHOTO", options->photo, "the photo")->required();
    command->add_flag("--json", options->json, "one JSON document (see README)");
    command->callback([options, status] { *status = Inspect(*options); });
}

}  // namespace iqa_tools
