// iqa extract: turns the NV12 preview of a photo's newest Iqa_com record into a viewable image.
#include <cstdio>
#include <memory>

#include "tools/commands/Commands.h"
#include "tools/files/CameraFiles.h"
#include "tools/files/ImageFiles.h"
#include "tools/files/Nv12Image.h"

namespace iqa_tools {

namespace {

struct ExtractOptions {
    std::string photo;
    std::string out;
};

int Extract(const ExtractOptions& o) {
    Bytes file;
    if (!ReadInput("extract", o.photo, &file)) {
        return 1;
    }
    Image preview;
    uint64_t at = 0;
    std::string why;
    if (!NewestPreview(file, &preview, &at, &why)) {
        fprintf(stderr, "iqa extract: %s %s\n", o.photo.c_str(), why.c_str());
        return 1;
    }
    if (!WriteImage(o.out, preview)) {
        fprintf(stderr, "iqa extract: cannot write %s: %s\n", o.out.c_str(), FileError().c_str());
        return 1;
    }
    printf("%s: %dx%d preview from the record at %llu\n", o.out.c_str(), preview.width,
           preview.height, static_cast<unsigned long long>(at));
    return 0;
}

}  // namespace

void AddExtractCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<ExtractOptions>();
    CLI::App* command = app.add_subcommand(
        "extract",
        "Convert the NV12 preview stored in a photo's most recent Iqa_com record (the thumbnail "
        "the photo was found to disagree with, at a quarter of its size) into an image file.");
    command->add_option("PHOTO", options->photo, "the photo")->required();
    command->add_option("OUT", options->out, "the image to write: .png, .jpg or .ppm")
        ->required()
        ->check(ImageNameCheck());
    command->callback([options, status] { *status = Extract(*options); });
}

}  // namespace iqa_tools
