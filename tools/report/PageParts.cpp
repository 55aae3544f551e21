// The shared look of the pages: style, inline images and the script that zooms and flags them.
#include "tools/report/PageParts.h"

#include <algorithm>

namespace iqa_tools {

namespace {

constexpr int kQuality = 90;

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

constexpr const char* kImageScript = R"(
for (const img of document.images) {
  img.addEventListener('click', () => img.classList.toggle('zoom'));
}
window.addEventListener('load', () => {
  for (const img of document.images) {
    if (!img.complete || img.naturalWidth === 0) img.classList.add('broken');
  }
});
)";

}  // namespace

ReportImage Shown(const Image& image, const std::string& caption) {
    JpegOptions options;
    options.fullChroma = true;
    return {EncodeJpeg(image.rgb, image.width, image.height, 3, kQuality, options), caption};
}

std::string PageHead(const std::string& title) {
    return "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>" +
           Escape(title) + "</title>\n<style>" + kStyle + "</style></head>\n<body>\n";
}

std::string PageEnd(const std::string& script) {
    return "<script>" + script + kImageScript + "</script>\n</body></html>\n";
}

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

}  // namespace iqa_tools
