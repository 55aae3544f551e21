// The report's markup and the small script that sorts its rows. The four image columns take a
// share of the window's width, so the page fits a laptop screen without scrolling sideways.
#include "tools/report/ReportPage.h"

#include <algorithm>

namespace iqa_tools {

namespace {

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
)";

// Low verdicts first, then high, then photos without a result; lower SSIM first within each.
int Group(const PhotoResult& p) {
    return p.verdict == "low" ? 0 : p.verdict == "high" ? 1 : 2;
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

std::string ReportPage(const std::string& cameraRoot, std::vector<ReportRow> rows) {
    std::stable_sort(rows.begin(), rows.end(), [](const ReportRow& a, const ReportRow& b) {
        const int ga = Group(a.result), gb = Group(b.result);
        return ga != gb ? ga < gb : a.result.ssim < b.result.ssim;
    });
    std::string html =
        PageHead("iqa report: " + cameraRoot) + "<h1>Photo and preview similarity</h1>\n";
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
    return html + "</tbody></table>\n" + PageEnd(kScript);
}

}  // namespace iqa_tools
