// The scan page's markup: a table of flagged photos with three images each, a compact table of
// the others (unfinished dumps and damaged trailers first), and what could not be read.
#include "tools/report/ScanPage.h"

#include <algorithm>
#include <cstdio>

#include "tools/report/Heatmap.h"
#include "tools/report/PageParts.h"

namespace iqa_tools {

namespace {

constexpr int kOutlinedBlocks = 5;

std::string Images(const ScannedPhoto& p) {
    std::string kinds;
    for (size_t i = 0; i < p.listing.images.size(); ++i) {
        kinds += (i == 0 ? "" : ", ") + ImageKind(p.listing, i);
    }
    return kinds.empty() ? "no JPEG image" : kinds;
}

std::string TrailerCell(const ScannedPhoto& p) {
    const std::string why = p.journal.empty() ? p.listing.problem : "journal " + p.journal;
    const std::string kind = p.trailer == "whole" || p.trailer == "none" ? "" : " class=\"low\"";
    return "<td><span" + kind + ">" + Escape(p.trailer) + "</span>" +
           Note(p.trailer == "none" ? "" : why) + "</td>";
}

std::string PhotoCell(const ScannedPhoto& p) {
    return "<td><b>" + Escape(p.file) + "</b>" +
           Note(std::to_string(p.listing.size) + " bytes; " + Images(p)) + "</td>";
}

std::string SsimText(double ssim) {
    char text[32];
    snprintf(text, sizeof(text), "%.6f", ssim);
    return text;
}

std::string FlaggedRow(const ScanRow& row) {
    const ScannedPhoto& p = *row.photo;
    const FlaggedView& v = row.view;
    size_t records = 0;
    for (const TrailerRecord& r : p.listing.records) {
        records += r.tag == "Iqa_com";
    }
    ReportImage photo{{}, v.error}, preview{{}, v.error}, map{{}, v.error};
    if (v.preview.width > 0) {
        preview = Shown(v.preview, std::to_string(v.preview.width) + "x" +
                                       std::to_string(v.preview.height) + " NV12, record at byte " +
                                       std::to_string(v.recordAt));
    }
    if (v.comparison.ok) {
        photo = Shown(v.comparison.photoImage,
                      "decoded at reduced scale, box-reduced to the "
                      "preview's size");
        map = Shown(RenderHeatmap(v.comparison, WorstBlocks(v.comparison, kOutlinedBlocks)),
                    "SSIM " + SsimText(v.comparison.ssim) +
                        " of the preview against the reduced photo: an indication from a "
                        "quarter-size preview, not the score the phone computed");
    }
    return "<tr class=\"flagged\" id=\"photo-" + Escape(p.file) + "\">" + PhotoCell(p) + "<td>" +
           std::to_string(records) + " Iqa_com record" + (records == 1 ? "" : "s") + "</td>" +
           TrailerCell(p) + ImageCell(photo, "reduced photo " + p.file) +
           ImageCell(preview, "stored preview of " + p.file) +
           ImageCell(map, "block SSIM of " + p.file) + "</tr>\n";
}

std::string OtherRow(const ScannedPhoto& p) {
    return "<tr class=\"other\" id=\"photo-" + Escape(p.file) + "\">" + PhotoCell(p) + "<td>" +
           std::to_string(p.listing.records.size()) + "</td>" + TrailerCell(p) + "</tr>\n";
}

// Unfinished dumps, then damaged trailers, then the rest, each in the scan's order.
int Urgency(const ScannedPhoto& p) {
    return p.trailer == "unfinished dump" ? 0 : p.trailer == "damaged" ? 1 : 2;
}

}  // namespace

std::string ScanPage(const FolderScan& scan, const std::string& summary,
                     const std::vector<ScanRow>& rows) {
    std::string html = PageHead("iqa scan: " + scan.folder) + "<h1>What the phone flagged</h1>\n";
    html += "<p>Photos under <code>" + Escape(scan.folder) + "</code>. " + Escape(summary) +
            ". A flagged photo holds an Iqa_com record: the phone judged it of low similarity to "
            "its preview thumbnail and stored a quarter-size copy of the thumbnail in it. Beside "
            "that copy, the photo reduced to its size and a block SSIM map of the two: an "
            "indication, not the score the phone computed. Click an image to see it at full "
            "size.</p>\n";
    if (!scan.problems.empty()) {
        html += "<h2>Not read</h2>\n<ul>\n";
        for (const std::string& problem : scan.problems) {
            html += "<li>" + Escape(problem) + "</li>\n";
        }
        html += "</ul>\n";
    }
    html +=
        "<h2>Flagged</h2>\n<table id=\"flagged\"><thead><tr><th>Photo</th><th>Records</th>"
        "<th>Trailer</th><th>Photo, reduced</th><th>Preview in the photo</th><th>Block SSIM "
        "(indication)</th></tr></thead>\n<tbody>\n";
    std::vector<const ScannedPhoto*> others;
    for (const ScanRow& row : rows) {
        if (row.photo->flagged) {
            html += FlaggedRow(row);
        } else {
            others.push_back(row.photo);
        }
    }
    std::stable_sort(
        others.begin(), others.end(),
        [](const ScannedPhoto* a, const ScannedPhoto* b) { return Urgency(*a) < Urgency(*b); });
    html +=
        "</tbody></table>\n<h2>Not flagged</h2>\n<table id=\"others\"><thead><tr><th>Photo"
        "</th><th>Records</th><th>Trailer</th></tr></thead>\n<tbody>\n";
    for (const ScannedPhoto* p : others) {
        html += OtherRow(*p);
    }
    return html + "</tbody></table>\n" + PageEnd("");
}

}  // namespace iqa_tools
