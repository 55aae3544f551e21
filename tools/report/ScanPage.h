// The page of iqa scan: the photos a phone flagged, each beside the preview it stored, then the
// others in a compact list.
#ifndef IQA_TOOLS_REPORT_SCAN_PAGE_H
#define IQA_TOOLS_REPORT_SCAN_PAGE_H

#include <string>
#include <vector>

#include "tools/commands/CommandCores.h"

namespace iqa_tools {

struct ScanRow {
    const ScannedPhoto* photo;
    FlaggedView view;  // for a flagged photo
};

// rows: one per photo of the scan, in its order.
std::string ScanPage(const FolderScan& scan, const std::string& summary,
                     const std::vector<ScanRow>& rows);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_REPORT_SCAN_PAGE_H
