// The HTML report of a run: one self-contained page (images inline as JPEG data) with a row per
// photo, low verdicts first, sortable by SSIM in the browser.
#ifndef IQA_TOOLS_REPORT_REPORT_PAGE_H
#define IQA_TOOLS_REPORT_REPORT_PAGE_H

#include <string>
#include <vector>

#include "tools/commands/RunResults.h"
#include "tools/report/PageParts.h"

namespace iqa_tools {

struct ReportRow {
    PhotoResult result;
    // The thumbnail and the photo as the SSIM stage compared them, the block SSIM map and the
    // preview stored in the photo's trailer.
    ReportImage thumbnail, photo, heatmap, preview;
    std::string note;  // anything else the reader should know about the row
};

std::string ReportPage(const std::string& cameraRoot, std::vector<ReportRow> rows);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_REPORT_REPORT_PAGE_H
