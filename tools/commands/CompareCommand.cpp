// iqa compare: one photo and one raw thumbnail through the library's own preparation and SSIM
// stages, outside any camera root and with nothing written into the photo; optionally the map of
// block SSIMs as an image and the worst blocks as a list.
#include <climits>
#include <cstdio>
#include <memory>

#include <nlohmann/json.hpp>

#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/files/ImageFiles.h"
#include "tools/report/Heatmap.h"

namespace iqa_tools {

namespace {

struct CompareOptions {
    std::string photo;
    std::string thumbnail;
    std::string heatmap;
    int worst = 0;
    bool json = false;
};

std::string SizeText(const Size& s) {
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

nlohmann::ordered_json SizeJson(const Size& s) {
    return {{"width", s.width}, {"height", s.height}};
}

}  // namespace

bool ComparePair(const std::string& photo, const std::string& thumbnail, bool rawPhoto,
                 PairEvaluation* evaluation, Failure* failure) {
    for (const std::string& input : {photo, thumbnail}) {
        Bytes ignored;
        if (!ReadInputFile(input, &ignored, failure)) {  // one clear line before the library's
            return false;
        }
    }
    *evaluation = EvaluatePair(photo, thumbnail, rawPhoto);
    if (!evaluation->ok) {
        failure->reason = photo + " and " + thumbnail + ": " + evaluation->error;
    }
    return evaluation->ok;
}

// The exact double, block values included, so that their mean can be checked bit for bit.
nlohmann::ordered_json CompareDocument(const std::string& photo, const std::string& thumbnail,
                                       const PairEvaluation& e,
                                       const std::vector<BlockSpot>& worst) {
    nlohmann::ordered_json spots = nlohmann::ordered_json::array();
    for (const BlockSpot& spot : worst) {
        nlohmann::ordered_json pixels = nlohmann::ordered_json::array();
        for (const PixelRect& r : spot.pixels) {
            pixels.push_back({{"x0", r.x0}, {"y0", r.y0}, {"x1", r.x1}, {"y1", r.y1}});
        }
        spots.push_back(
            {{"block", {spot.blockX, spot.blockY}}, {"ssim", spot.ssim}, {"pixels", pixels}});
    }
    return {{"photo", photo},
            {"thumbnail", thumbnail},
            {"photo_size", SizeJson(e.photo)},
            {"thumbnail_size", SizeJson(e.thumbnail)},
            {"compared", SizeJson(e.compared)},
            {"ssim", e.ssim},
            {"verdict", e.verdict},
            {"blocks", {{"columns", e.blocksX}, {"rows", e.blocksY}, {"ssim", e.blocks}}},
            {"worst", spots}};
}

namespace {

void PrintText(const std::string& photo, const PairEvaluation& e,
               const std::vector<BlockSpot>& worst) {
    printf("photo %s, thumbnail %s, compared at %s\n", SizeText(e.photo).c_str(),
           SizeText(e.thumbnail).c_str(), SizeText(e.compared).c_str());
    // The batch run's log line for the same pair.
    printf("img %s with %s similarity : ssim %lf\n", photo.c_str(), e.verdict.c_str(), e.ssim);
    for (const BlockSpot& spot : worst) {
        printf("block %d,%d  ssim %lf  pixels", spot.blockX, spot.blockY, spot.ssim);
        for (const PixelRect& r : spot.pixels) {
            printf(" %d-%d,%d-%d", r.x0, r.x1 - 1, r.y0, r.y1 - 1);
        }
        printf("\n");
    }
}

int Compare(const CompareOptions& o) {
    PairEvaluation e;
    Failure failure;
    if (!ComparePair(o.photo, o.thumbnail, false, &e, &failure)) {
        fprintf(stderr, "iqa compare: %s\n", failure.reason.c_str());
        return 1;
    }
    const std::vector<BlockSpot> worst = WorstBlocks(e, o.worst);
    if (!o.heatmap.empty() && !WriteImage(o.heatmap, RenderHeatmap(e, WorstBlocks(e, 5)))) {
        fprintf(stderr, "iqa compare: cannot write %s: %s\n", o.heatmap.c_str(),
                FileError().c_str());
        return 1;
    }
    if (o.json) {
        printf("%s\n", CompareDocument(o.photo, o.thumbnail, e, worst).dump(2).c_str());
    } else {
        PrintText(o.photo, e, worst);
    }
    return 0;
}

}  // namespace

void AddCompareCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<CompareOptions>();
    CLI::App* command = app.add_subcommand(
        "compare",
        "Compare one JPEG photo with one raw thumbnail as a batch run would (the larger image is "
        "reduced to the smaller one's size, then the block SSIM is taken), outside any camera "
        "root; nothing is written into the photo. Prints the sizes, the SSIM and the verdict as "
        "the batch run logs them.");
    command->add_option("PHOTO", options->photo, "the JPEG photo")->required();
    command->add_option("THUMBNAIL", options->thumbnail, "its raw thumbnail file")->required();
    command
        ->add_option("--heatmap", options->heatmap,
                     "write the SSIM of every 8x8 block over the compared picture (.png, .jpg or "
                     ".ppm), the five worst blocks outlined")
        ->check(ImageNameCheck());
    command
        ->add_option("--worst", options->worst,
                     "list the N worst blocks with the pixels each one reads")
        ->check(CLI::Range(0, INT_MAX));
    command->add_flag("--json", options->json,
                      "one JSON document, with every block's SSIM (see README)");
    command->callback([options, status] { *status = Compare(*options); });
}

}  // namespace iqa_tools
