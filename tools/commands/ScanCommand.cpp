// iqa scan: what a phone flagged, read from the photos of a camera folder pulled from it. Every
// JPEG is judged from its markers and trailer alone; only a flagged photo is decoded, and only
// for the HTML page. Writes nothing into the folder.
#include <cstdio>
#include <filesystem>
#include <memory>

#include "common/FileCalls.h"
#include "process/BoxReduce.h"
#include "tools/commands/CommandCores.h"
#include "tools/commands/Commands.h"
#include "tools/commands/Terminal.h"
#include "tools/files/Nv12Image.h"
#include "tools/files/PhotoFolder.h"
#include "tools/report/ScanPage.h"

namespace iqa_tools {

namespace {

namespace fs = std::filesystem;

// The preview is a quarter of the compared size, so a decode at 1/4 box-reduced to it covers the
// photo as the phone's reduction did; 1/2 or 1 only when the photo is smaller than that.
constexpr int kPreviewScale = 4;

std::string TrailerState(const TrailerListing& listing) {
    if (listing.status == IQA::LayoutStatus::kWhole) {
        return "whole";
    }
    const bool nothingBehind = !listing.images.empty() && listing.imageEnd == listing.size;
    return listing.status == IQA::LayoutStatus::kDamaged && nothingBehind ? "none" : "damaged";
}

bool ScanPhoto(const std::string& dir, const std::string& file, ScannedPhoto* photo,
               std::string* why) {
    const std::string path = dir + "/" + file;
    const IQA::ScopedFd fd(IQA::OpenRegularFile(path.c_str(), O_RDONLY));
    const int64_t length = fd.get() < 0 ? -1 : IQA::FileLength(fd.get());
    if (length < 0) {
        *why = "cannot read " + file + ": " + FileError();
        return false;
    }
    IQA::FileSource source(fd.get(), static_cast<uint64_t>(length));
    photo->file = file;
    ReadTrailer(source, &photo->listing);
    const fs::path place(file);
    const std::string journal = IQA::PendingJournal((fs::path(dir) / place.parent_path()).string(),
                                                    place.filename().string());
    photo->journal = journal.empty() ? "" : fs::relative(journal, dir).string();
    photo->trailer = journal.empty() ? TrailerState(photo->listing) : "unfinished dump";
    for (const TrailerRecord& r : photo->listing.records) {
        photo->flagged = photo->flagged || r.tag == "Iqa_com";
    }
    return true;
}

nlohmann::ordered_json OrNull(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

struct Counts {
    size_t photos = 0, flagged = 0, damaged = 0, unfinished = 0;
};

Counts CountsOf(const FolderScan& scan) {
    Counts c;
    for (const ScannedPhoto& p : scan.photos) {
        ++c.photos;
        c.flagged += p.flagged;
        c.damaged += p.trailer == "damaged";
        c.unfinished += p.trailer == "unfinished dump";
    }
    return c;
}

}  // namespace

bool ScanFolder(const std::string& dir, bool showProgress, FolderScan* scan, Failure* failure) {
    PhotoFolder found;
    if (!FindPhotos(dir, &found, &failure->reason)) {
        std::error_code error;
        failure->missing = !fs::exists(dir, error);
        return false;
    }
    scan->folder = dir;
    scan->problems = found.problems;
    Progress progress(showProgress ? found.photos.size() : 0);
    for (const std::string& file : found.photos) {
        progress.Show(scan->photos.size(), file);
        ScannedPhoto photo;
        std::string why;
        if (ScanPhoto(dir, file, &photo, &why)) {
            scan->photos.push_back(std::move(photo));
        } else {
            scan->problems.push_back(why);
        }
    }
    return true;
}

nlohmann::ordered_json ScanDocument(const FolderScan& scan) {
    nlohmann::ordered_json photos = nlohmann::ordered_json::array();
    for (const ScannedPhoto& p : scan.photos) {
        nlohmann::ordered_json photo = InspectDocument(p.file, p.listing);
        photo["trailer"] = p.trailer;
        photo["journal"] = OrNull(p.journal);
        photo["flagged"] = p.flagged;
        photos.push_back(std::move(photo));
    }
    const Counts c = CountsOf(scan);
    return {{"folder", scan.folder},
            {"photos", photos},
            {"problems", scan.problems},
            {"summary",
             {{"photos", c.photos},
              {"flagged", c.flagged},
              {"damaged", c.damaged},
              {"unfinished", c.unfinished}}}};
}

std::string ScanSummary(const FolderScan& scan) {
    const Counts c = CountsOf(scan);
    return std::to_string(c.photos) + " photos: " + std::to_string(c.flagged) + " flagged, " +
           std::to_string(c.damaged) + " damaged trailers, " + std::to_string(c.unfinished) +
           " unfinished dumps";
}

bool StoredPreview(const std::string& dir, const ScannedPhoto& photo, Image* preview,
                   uint64_t* recordAt, std::string* why) {
    const std::string path = dir + "/" + photo.file;
    const IQA::ScopedFd fd(IQA::OpenRegularFile(path.c_str(), O_RDONLY));
    if (fd.get() < 0) {
        *why = "cannot read the photo: " + FileError();
        return false;
    }
    IQA::FileSource source(fd.get(), photo.listing.size);
    if (!PreviewOf(source, photo.listing, preview, recordAt, why)) {
        *why = "the photo " + *why;
        return false;
    }
    return true;
}

FlaggedView ViewFlagged(const std::string& dir, const ScannedPhoto& photo) {
    FlaggedView view;
    if (!StoredPreview(dir, photo, &view.preview, &view.recordAt, &view.error)) {
        return view;
    }
    const Size size{view.preview.width, view.preview.height};
    Bytes file;
    Image decoded;
    if (!ReadWholeFile(dir + "/" + photo.file, &file, &view.error) ||
        !DecodeJpeg(file, &decoded.rgb, &decoded.width, &decoded.height, size, kPreviewScale)) {
        view.error = "the photo does not decode" + (view.error.empty() ? "" : ": " + view.error);
        return view;
    }
    Image reduced{size.width, size.height,
                  Bytes(static_cast<size_t>(size.width) * size.height * 3)};
    IQA::BoxReduce(decoded.rgb.data(), decoded.width, decoded.height, reduced.rgb.data(),
                   size.width, size.height);
    view.comparison = EvaluateImages(view.preview, reduced);
    view.error = view.comparison.error;
    return view;
}

std::string ScanReport(const FolderScan& scan, bool showProgress) {
    std::vector<ScanRow> rows;
    size_t flagged = 0;
    for (const ScannedPhoto& p : scan.photos) {
        flagged += p.flagged;
    }
    Progress progress(showProgress ? flagged : 0);
    size_t viewed = 0;
    for (const ScannedPhoto& p : scan.photos) {
        ScanRow row{&p, {}};
        if (p.flagged) {
            progress.Show(viewed++, p.file);
            row.view = ViewFlagged(scan.folder, p);
        }
        rows.push_back(std::move(row));
    }
    progress.Clear();
    return ScanPage(scan, ScanSummary(scan), rows);
}

}  // namespace iqa_tools

namespace iqa_tools {

namespace {

struct ScanOptions {
    std::string dir;
    bool json = false;
    bool csv = false;
    std::string out;  // the HTML page, when asked for
};

// The newest Iqa_com record's image, as "WxH algorithm"; "-" for none.
std::string PreviewText(const ScannedPhoto& p) {
    for (size_t i = 0; i < p.listing.records.size(); ++i) {
        const std::optional<Descriptor>& d = p.listing.descriptors[i];
        if (p.listing.records[i].tag == "Iqa_com" && d) {
            return std::to_string(d->width) + "x" + std::to_string(d->height) + " " + d->algoname;
        }
    }
    return "-";
}

std::string Kinds(const ScannedPhoto& p) {
    std::string kinds;
    for (size_t i = 0; i < p.listing.images.size(); ++i) {
        kinds += (i == 0 ? "" : ";") + ImageKind(p.listing, i);
    }
    return kinds;
}

std::string StateText(const ScannedPhoto& p) {
    if (!p.journal.empty()) {
        return p.trailer + ": " + p.journal;
    }
    return p.trailer == "damaged" ? p.trailer + ": " + p.listing.problem : p.trailer;
}

std::string Table(const FolderScan& scan) {
    std::vector<std::vector<std::string>> rows = {
        {"photo", "bytes", "images", "records", "preview", "trailer"}};
    for (const ScannedPhoto& p : scan.photos) {
        rows.push_back({p.file, std::to_string(p.listing.size),
                        std::to_string(p.listing.images.size()),
                        std::to_string(p.listing.records.size()), PreviewText(p), StateText(p)});
    }
    return FormatTable(rows) + ScanSummary(scan) + "\n";
}

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (char c : text) {
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    }
    return quoted + "\"";
}

std::string Csv(const FolderScan& scan) {
    std::string out = "photo,size,images,records,iqa_records,preview,trailer,problem,journal\n";
    for (const ScannedPhoto& p : scan.photos) {
        size_t ours = 0;
        for (const TrailerRecord& r : p.listing.records) {
            ours += r.tag == "Iqa_com";
        }
        const std::vector<std::string> fields = {p.file,
                                                 std::to_string(p.listing.size),
                                                 Kinds(p),
                                                 std::to_string(p.listing.records.size()),
                                                 std::to_string(ours),
                                                 PreviewText(p) == "-" ? "" : PreviewText(p),
                                                 p.trailer,
                                                 p.listing.problem,
                                                 p.journal};
        for (size_t i = 0; i < fields.size(); ++i) {
            out += (i == 0 ? "" : ",") + CsvField(fields[i]);
        }
        out += "\n";
    }
    return out;
}

bool WritePage(const ScanOptions& o, const FolderScan& scan) {
    const std::string page = ScanReport(scan, true);
    if (!WriteWholeFile(o.out, Bytes(page.begin(), page.end()))) {
        fprintf(stderr, "iqa scan: cannot write %s: %s\n", o.out.c_str(), FileError().c_str());
        return false;
    }
    fprintf(stderr, "iqa scan: page written to %s\n", o.out.c_str());
    return true;
}

int Scan(const ScanOptions& o) {
    FolderScan scan;
    Failure failure;
    if (!ScanFolder(o.dir, true, &scan, &failure)) {
        fprintf(stderr, "iqa scan: %s\n", failure.reason.c_str());
        return 1;
    }
    for (const std::string& problem : scan.problems) {
        fprintf(stderr, "iqa scan: %s\n", problem.c_str());
    }
    const std::string out = o.json  ? ScanDocument(scan).dump(2) + "\n"
                            : o.csv ? Csv(scan)
                                    : Table(scan);
    fputs(out.c_str(), stdout);
    return o.out.empty() || WritePage(o, scan) ? 0 : 1;
}

}  // namespace

void AddScanCommand(CLI::App& app, int* status) {
    auto options = std::make_shared<ScanOptions>();
    CLI::App* command = app.add_subcommand(
        "scan",
        "Read every JPEG under a folder pulled from a phone (adb pull /sdcard/DCIM/Camera), "
        "recursively and in name order, and say per photo its size, its images, its records "
        "(the Iqa_com records the phone wrote for photos it judged of low similarity, with the "
        "preview's size and algorithm) and its trailer: whole, none, damaged (with the reason "
        "iqa inspect gives) or an unfinished dump (a journal for it lies in iqathumb beside it; "
        "iqa recover completes it). Then a summary line. Writes nothing into the folder. With "
        "-o, an HTML page: flagged photos first, each beside its stored preview with a block "
        "SSIM map of the two, then the others in a compact list.");
    command->add_option("DIR", options->dir, "the folder")->required();
    auto* json = command->add_flag("--json", options->json, "one JSON document (see README)");
    command->add_flag("--csv", options->csv, "CSV, one line a photo")->excludes(json);
    command->add_option("-o,--output", options->out, "also write the HTML page here");
    command->callback([options, status] { *status = Scan(*options); });
}

}  // namespace iqa_tools
