// The report's markup, style and the small script that sorts rows and flags images the browser
// could not show. The four image columns take a share of the window's width, so the page fits a
// laptop screen without scrolling sideways; a click shows an image at full size.
#include "tools/report/ReportPage.h"

#include <algorithm>

namespace iqa_tools {

namespace {

constexpr const char* kStyle = R"(
body { font: 14px/1.4 system-ui, sans-serif; margin: 1.5em; color: #222; }
h1 { font-size: 1.4em; margin: 0 0 .3em; }
table { border-collapse: collapse; }
th, td { border-bottom: 1px solid #ddd; padding: .5em; vertical-align: top; text-align: left; }
th.sort { cursor: pointer; text-decoration: underline dotted; }
th.sort[data-order=ascending]::after { content: " \25B2"; }
th.sort[data-order=descending]::after { content: " \25BC"; }
.low { color: #b00020; font-weight: bold; }
.high { color: #11702e; }
.none { color: #666; }
figure { margin: 0; }
figcaption, .missing, .note { color: #666; font-size: .9em; max-width: 18em; }
.note { overflow-wrap: anywhere; }  /* a path has no spaces to wrap at */
td.image { width: 15vw; max-width: 240px; }
img { width: 100%; max-width: 240px; height: auto; image-rendering: pixelated; cursor: zoom-in;
      display: block; }
img.zoom { width: auto; max-width: none; cursor: zoom-out; }
img.broken { outline: 2px solid #b00020; }
)";

// Sorting keeps rows without an SSIM last; clicking the verdict restores low verdicts first.
constexpr const char* kScript = R"(
const body = document.querySelector('#photos tbody');
const rows = Array.from(body.rows);
const ssim = r => r.dataset.ssim === '' ? null : Number(r.dataset.ssim);
function sortRows(header, compare) {
  for (const h of document.querySelectorAll('th.sort')) {
    if (h !== header) h.removeAttribute('data-order');
  }
  rows.slice().sort(compare).forEach(r => body.appendChild(r));
}
const ssimHeader = document.getElementById('sort-ssim');
ssimHeader.addEventListener('click', () => {
  const order = ssimHeader.dataset.order === 'ascending' ? 'descending' : 'ascending';
  ssimHeader.dataset.order = order;
  const sign = order === 'ascending' ? 1 : -1;
  sortRows(ssimHeader, (a, b) => (ssim(a) === null) - (ssim(b) === null) ||
                                 sign * (ssim(a) - ssim(b)) || a.dataset.rank - b.dataset.rank);
});
const verdictHeader = document.getElementById('sort-verdict');
verdictHeader.addEventListener('click', () => {
  verdictHeader.dataset.order = 'ascending';
  sortRows(verdictHeader, (a, b) => a.dataset.rank - b.dataset.rank);
});
for (const img of document.images) {
  img.addEventListener('click', () => img.classList.toggle('zoom'));
}
window.addEventListener('load', () => {
  for (const img of document.images) {
    if (!img.complete || img.naturalWidth === 0) img.classList.add('broken');
  }
});
)";

std::string Escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

std::string SizeText(const Size& s) {
    return s.width > 0 ? std::to_string(s.width) + "&times;" + std::to_string(s.height) : "";
}

// Low verdicts first, then high, then photos without a result; lower SSIM first within each.
int Group(const PhotoResult& p) {
    return p.verdict == "low" ? 0 : p.verdict == "high" ? 1 : 2;
}

std::string ImageCell(const ReportImage& image, const std::string& alt) {
    if (image.jpeg.empty()) {
        return "<td class=\"image\"><span class=\"missing\">" + Escape(image.caption) +
               "</span></td>";
    }
    return "<td class=\"image\"><figure><img alt=\"" + Escape(alt) +
           "\" src=\"data:image/jpeg;base64," + Base64(image.jpeg) + "\"><figcaption>" +
           Escape(image.caption) + "</figcaption></figure></td>";
}

std::string Note(const std::string& text) {
    return text.empty() ? "" : "<div class=\"note\">" + Escape(text) + "</div>";
}

std::string Row(const ReportRow& row, size_t rank) {
    const PhotoResult& p = row.result;
    const std::string ssim = p.scored ? SsimText(p) : "";
    const std::string group[] = {"low", "high", "none"};
    std::string html = "<tr id=\"photo-" + Escape(p.name) + "\" data-rank=\"" +
                       std::to_string(rank) + "\" data-ssim=\"" + ssim + "\">";
    html += "<td><b>" + Escape(p.name) + "</b>" + Note(row.note) + "</td><td class=\"" +
            group[Group(p)] + "\">" + Escape(p.verdict) + Note(p.problem) + "</td><td>" + ssim +
            "</td><td>" + SizeText(p.compared) + "</td><td>" + Escape(RecordText(p)) +
            Note(p.recordProblem) + "</td>";
    html += ImageCell(row.thumbnail, "thumbnail of " + p.name) +
            ImageCell(row.photo, "reduced photo " + p.name) +
            ImageCell(row.heatmap, "block SSIM of " + p.name) +
            ImageCell(row.preview, "stored preview of " + p.name);
    return html + "</tr>\n";
}

std::string Summary(const std::vector<ReportRow>& rows) {
    size_t counts[3] = {};
    for (const ReportRow& row : rows) {
        ++counts[Group(row.result)];
    }
    return std::to_string(rows.size()) + " photos: " + std::to_string(counts[0]) + " low, " +
           std::to_string(counts[1]) + " high, " + std::to_string(counts[2]) + " without a result.";
}

}  // namespace

std::string Base64(const Bytes& bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = std::min<size_t>(3, bytes.size() - i);
        uint32_t v = uint32_t{bytes[i]} << 16;
        v |= n > 1 ? uint32_t{bytes[i + 1]} << 8 : 0;
        v |= n > 2 ? uint32_t{bytes[i + 2]} : 0;
        for (size_t d = 0; d < 4; ++d) {
            out += d <= n ? kDigits[(v >> (18 - 6 * d)) & 63] : '=';
        }
    }
    return out;
}

std::string ReportPage(const std::string& cameraRoot, std::vector<ReportRow> rows) {
    std::stable_sort(rows.begin(), rows.end(), [](const ReportRow& a, const ReportRow& b) {
        const int ga = Group(a.result), gb = Group(b.result);
        return ga != gb ? ga < gb : a.result.ssim < b.result.ssim;
    });
    std::string html = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n";
    html += "<title>iqa report: " + Escape(cameraRoot) + "</title>\n<style>" + kStyle +
            "</style></head>\n<body>\n<h1>Photo and preview similarity</h1>\n";
    html += "<p>Last run over the camera root <code>" + Escape(cameraRoot) + "</code>. " +
            Summary(rows) +
            " A photo is of high similarity when its SSIM exceeds 0.9. Click an image to see it "
            "at full size.</p>\n";
    html +=
        "<table id=\"photos\"><thead><tr><th>Photo</th><th class=\"sort\" id=\"sort-verdict\" "
        "data-order=\"ascending\">Verdict</th><th class=\"sort\" id=\"sort-ssim\">SSIM</th>"
        "<th>Compared</th><th>Record</th><th>Thumbnail</th><th>Photo, reduced</th><th>Block "
        "SSIM</th><th>Preview in the photo</th></tr></thead>\n<tbody>\n";
    for (size_t i = 0; i < rows.size(); ++i) {
        html += Row(rows[i], i);
    }
    return html + "</tbody></table>\n<script>" + kScript + "</script>\n</body></html>\n";
}

}  // namespace iqa_tools
