// What the HTML pages of the iqa program share: one look (style, images shown inline as JPEG
// data, a click to see one at full size, a broken image flagged), escaping, and the JPEG an image
// is shown as.
#ifndef IQA_TOOLS_REPORT_PAGE_PARTS_H
#define IQA_TOOLS_REPORT_PAGE_PARTS_H

#include <string>

#include "tools/files/CameraFiles.h"

namespace iqa_tools {

// An image of a row: its JPEG file, or, when there is none, why.
struct ReportImage {
    Bytes jpeg;
    std::string caption;  // under the image, or the reason in its place
};

// The image as a page shows it: JPEG keeps a page of many photos small; full chroma keeps a
// map's outlines sharp.
ReportImage Shown(const Image& image, const std::string& caption);

// From the doctype to the opening body tag, with the shared style.
std::string PageHead(const std::string& title);
// The page's own script (may be empty), the shared one, and the closing tags.
std::string PageEnd(const std::string& script);

std::string Escape(const std::string& text);
// "W&times;H", or "" for an unknown size.
std::string SizeText(const Size& size);
// A table cell with the image and its caption, or the reason there is none.
std::string ImageCell(const ReportImage& image, const std::string& alt);
// A small grey text under a cell's value; nothing for an empty text.
std::string Note(const std::string& text);

// Base64 of the bytes, for data URLs.
std::string Base64(const Bytes& bytes);

}  // namespace iqa_tools

#endif  // IQA_TOOLS_REPORT_PAGE_PARTS_H
