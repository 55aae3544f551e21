// Drawing the block map: the plane-to-picture mapping, the colour scale, outlines and legend.
#include "tools/report/Heatmap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <string>

namespace iqa_tools {

namespace {

constexpr int kBlock = 8;
constexpr int kTargetWidth = 640;  // smaller pictures are enlarged towards this
constexpr int kLegendBar = 16, kGlyphScale = 2, kMargin = 6;

struct Rgb {
    unsigned char r, g, b;
};

// A polynomial fit of the viridis scale: dark violet at 0 through blue and green to yellow at 1,
// ordered in lightness, so equal steps of SSIM read as equal steps of colour.
Rgb Scale(double value) {
    static constexpr double kC[7][3] = {
        {0.2777273272234177, 0.005407344544966578, 0.3340998053353061},
        {0.1050930431085774, 1.404613529898575, 1.384590162594685},
        {-0.3308618287255563, 0.214847559468213, 0.09509516302823659},
        {-4.634230498983486, -5.799100973351585, -19.33244095627987},
        {6.228269936347081, 14.17993336680509, 56.69055260068105},
        {4.776384997670288, -13.74514537774601, -65.35303263337234},
        {-5.435455855934631, 4.645852612178535, 26.3124352495832}};
    const double t = std::clamp(value, 0.0, 1.0);
    unsigned char out[3];
    for (int c = 0; c < 3; ++c) {
        double v = kC[6][c];
        for (int i = 5; i >= 0; --i) {
            v = v * t + kC[i][c];
        }
        out[c] = static_cast<unsigned char>(std::clamp(v, 0.0, 1.0) * 255 + 0.5);
    }
    return {out[0], out[1], out[2]};
}

// 3 x 5 glyphs for the legend's numbers, one row of three bits a line.
int GlyphRow(char c, int row) {
    static constexpr std::array<int, 5> kDigits[10] = {
        {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
        {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 1, 1}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7}};
    if (c >= '0' && c <= '9') {
        return kDigits[c - '0'][static_cast<size_t>(row)];
    }
    return c == '.' ? (row == 4 ? 2 : 0) : 0;
}

class Canvas {
  public:
    Canvas(int width, int height) : image_{width, height, Bytes(size_t(width) * height * 3, 0)} {}
    void Set(int x, int y, Rgb c) {
        if (x >= 0 && y >= 0 && x < image_.width && y < image_.height) {
            unsigned char* p = &image_.rgb[(size_t(y) * image_.width + x) * 3];
            p[0] = c.r, p[1] = c.g, p[2] = c.b;
        }
    }
    void Fill(int x0, int y0, int x1, int y1, Rgb c) {
        for (int y = y0; y < y1; ++y) {
            for (int x = x0; x < x1; ++x) {
                Set(x, y, c);
            }
        }
    }
    void Frame(int x0, int y0, int x1, int y1, Rgb c) {
        Fill(x0, y0, x1, y0 + 1, c), Fill(x0, y1 - 1, x1, y1, c);
        Fill(x0, y0, x0 + 1, y1, c), Fill(x1 - 1, y0, x1, y1, c);
    }
    void Text(int x, int y, const std::string& text, Rgb c) {
        for (char ch : text) {
            for (int row = 0; row < 5; ++row) {
                for (int col = 0; col < 3; ++col) {
                    if (GlyphRow(ch, row) & (4 >> col)) {
                        Fill(x + col * kGlyphScale, y + row * kGlyphScale,
                             x + (col + 1) * kGlyphScale, y + (row + 1) * kGlyphScale, c);
                    }
                }
            }
            x += 4 * kGlyphScale;
        }
    }
    Image Take() { return std::move(image_); }

  private:
    Image image_;
};

// The runs of pixels a block's 64 bytes come from, one rectangle per third of the width.
std::vector<PixelRect> BlockPixels(int blockX, int blockY, int width) {
    std::vector<PixelRect> rects;
    for (int row = blockY * kBlock; row < (blockY + 1) * kBlock; ++row) {
        const int64_t first = int64_t(row) * width + blockX * kBlock;  // byte of the plane
        const int64_t p0 = first / 3, p1 = (first + kBlock - 1) / 3;   // pixels it falls in
        const PixelRect run{int(p0 % width), int(p0 / width), int(p1 % width) + 1,
                            int(p0 / width) + 1};
        auto same = std::find_if(rects.begin(), rects.end(),
                                 [&](const PixelRect& r) { return r.x0 == run.x0; });
        if (same == rects.end()) {
            rects.push_back(run);
        } else {
            same->y0 = std::min(same->y0, run.y0), same->y1 = std::max(same->y1, run.y1);
            same->x1 = std::max(same->x1, run.x1);
        }
    }
    return rects;
}

// Each pixel's block value, NaN where no block reads the pixel.
std::vector<double> PixelValues(const PairEvaluation& e) {
    const int width = e.compared.width;
    std::vector<double> values(size_t(width) * e.compared.height, std::nan(""));
    for (int by = 0; by < e.blocksY; ++by) {
        for (int bx = 0; bx < e.blocksX; ++bx) {
            for (const PixelRect& r : BlockPixels(bx, by, width)) {
                for (int y = r.y0; y < r.y1; ++y) {
                    std::fill(values.begin() + int64_t(y) * width + r.x0,
                              values.begin() + int64_t(y) * width + r.x1,
                              e.blocks[size_t(by) * e.blocksX + bx]);
                }
            }
        }
    }
    return values;
}

void DrawLegend(Canvas& canvas, int top, int width) {
    for (int x = 0; x < width; ++x) {
        canvas.Fill(x, top, x + 1, top + kLegendBar, Scale(double(x) / std::max(1, width - 1)));
    }
    const Rgb white{255, 255, 255};
    const int labelTop = top + kLegendBar + 2;
    canvas.Text(kMargin, labelTop, "0", white);
    canvas.Text(width / 2 - 6 * kGlyphScale, labelTop, "0.5", white);
    canvas.Text(width - kMargin - 3 * kGlyphScale, labelTop, "1", white);
}

}  // namespace

std::vector<BlockSpot> WorstBlocks(const PairEvaluation& e, int n) {
    std::vector<size_t> order(e.blocks.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return e.blocks[a] < e.blocks[b]; });
    std::vector<BlockSpot> worst;
    for (size_t i = 0; i < order.size() && int(worst.size()) < n; ++i) {
        const int bx = int(order[i] % e.blocksX), by = int(order[i] / e.blocksX);
        worst.push_back({bx, by, e.blocks[order[i]], BlockPixels(bx, by, e.compared.width)});
    }
    return worst;
}

Image RenderHeatmap(const PairEvaluation& e, const std::vector<BlockSpot>& outlined) {
    const int width = e.compared.width, height = e.compared.height;
    const Image& picture = e.photoImage.width == width ? e.photoImage : e.thumbImage;
    const int scale = std::max(1, kTargetWidth / std::max(1, width));
    const int legendTop = height * scale + kMargin;
    Canvas canvas(width * scale, legendTop + kLegendBar + 2 + 5 * kGlyphScale + kMargin);
    const std::vector<double> values = PixelValues(e);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const unsigned char* p = &picture.rgb[(size_t(y) * width + x) * 3];
            const double luma = (0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2]) / 255;
            const double v = values[size_t(y) * width + x];
            Rgb c{};
            if (std::isnan(v)) {  // not read by the SSIM: a dimmed grey picture
                const auto grey = static_cast<unsigned char>(20 + 90 * luma);
                c = {grey, grey, grey};
            } else {
                const Rgb s = Scale(v);
                const double shade = 0.55 + 0.45 * luma;
                c = {static_cast<unsigned char>(s.r * shade),
                     static_cast<unsigned char>(s.g * shade),
                     static_cast<unsigned char>(s.b * shade)};
            }
            canvas.Fill(x * scale, y * scale, (x + 1) * scale, (y + 1) * scale, c);
        }
    }
    for (const BlockSpot& spot : outlined) {
        for (const PixelRect& r : spot.pixels) {
            canvas.Frame(r.x0 * scale - 1, r.y0 * scale - 1, r.x1 * scale + 1, r.y1 * scale + 1,
                         {255, 60, 220});
        }
    }
    DrawLegend(canvas, legendTop, width * scale);
    return canvas.Take();
}

}  // namespace iqa_tools
