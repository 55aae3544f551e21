// Scene rendering: value-noise octaves for texture, a horizon, a few shaded discs, grain.
#include "tools/files/SceneGenerator.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace iqa_tools {

namespace {

class ValueNoise {
  public:
    ValueNoise(uint32_t seed, int cells) : cells_(cells), lattice_((cells + 2) * (cells + 2)) {
        std::mt19937 rng(seed);
        for (float& v : lattice_) {
            v = static_cast<float>(rng() % 1000) / 1000.0f;
        }
    }
    // u, v in [0, 1).
    float At(float u, float v) const {
        const float x = u * cells_, y = v * cells_;
        const int x0 = static_cast<int>(x), y0 = static_cast<int>(y);
        const float fx = Smooth(x - x0), fy = Smooth(y - y0);
        const float top = Lerp(Cell(x0, y0), Cell(x0 + 1, y0), fx);
        const float bottom = Lerp(Cell(x0, y0 + 1), Cell(x0 + 1, y0 + 1), fx);
        return Lerp(top, bottom, fy);
    }

  private:
    static float Smooth(float t) { return t * t * (3 - 2 * t); }
    static float Lerp(float a, float b, float t) { return a + (b - a) * t; }
    float Cell(int x, int y) const { return lattice_[y * (cells_ + 2) + x]; }

    int cells_;
    std::vector<float> lattice_;
};

struct Disc {
    float cx, cy, radius, r, g, b;
};

unsigned char Clamp(float v) {
    return static_cast<unsigned char>(std::clamp(v, 0.0f, 255.0f));
}

}  // namespace

std::vector<unsigned char> RenderScene(int width, int height, uint32_t seed) {
    std::mt19937 rng(seed);
    // Clouds and terrain at several scales, so that thumbnails of every size keep detail.
    const ValueNoise clouds(seed * 3 + 1, 5), billows(seed * 5 + 2, 23), wisps(seed * 11 + 5, 97);
    const ValueNoise ground(seed * 7 + 3, 31), leaves(seed * 13 + 4, 173), grit(seed * 17 + 6, 611);
    const float horizon = 0.25f + static_cast<float>(rng() % 300) / 1000.0f;
    const float sun = 0.6f + static_cast<float>(rng() % 400) / 1000.0f;  // time of day
    std::vector<Disc> discs(7);
    for (Disc& d : discs) {
        d = {static_cast<float>(rng() % 1000) / 1000.0f,
             static_cast<float>(rng() % 1000) / 1000.0f,
             0.03f + static_cast<float>(rng() % 100) / 1000.0f,
             static_cast<float>(rng() % 256),
             static_cast<float>(rng() % 256),
             static_cast<float>(rng() % 256)};
    }
    std::vector<unsigned char> rgb(static_cast<size_t>(width) * height * 3);
    std::uniform_real_distribution<float> grain(-4.0f, 4.0f);
    for (int y = 0; y < height; ++y) {
        const float v = static_cast<float>(y) / height;
        for (int x = 0; x < width; ++x) {
            const float u = static_cast<float>(x) / width;
            float r, g, b;
            if (v < horizon + 0.06f * (ground.At(u, 0.5f) - 0.5f)) {  // sky with clouds
                const float cloud =
                    std::clamp(1.6f * (0.5f * clouds.At(u, v) + 0.3f * billows.At(u, v) +
                                       0.2f * wisps.At(u, v)) -
                                   0.55f,
                               0.0f, 1.0f);
                r = sun * (80 + 70 * v) * (1 - cloud) + 235 * sun * cloud;
                g = sun * (130 + 50 * v) * (1 - cloud) + 235 * sun * cloud;
                b = sun * (215 - 30 * v) * (1 - cloud) + 240 * sun * cloud;
            } else {  // land: fields, foliage and grit
                const float t =
                    0.45f * ground.At(u, v) + 0.35f * leaves.At(u, v) + 0.2f * grit.At(u, v);
                r = sun * (40 + 150 * t);
                g = sun * (60 + 160 * t * t + 40 * leaves.At(v, u));
                b = sun * (25 + 70 * t);
            }
            for (const Disc& d : discs) {
                const float dx = (u - d.cx) * width / height, dy = v - d.cy;
                const float dist = std::sqrt(dx * dx + dy * dy);
                if (dist < d.radius) {
                    const float shade = 0.5f + 0.5f * (1 - dist / d.radius) * grit.At(u, v);
                    r = d.r * shade;
                    g = d.g * shade;
                    b = d.b * shade;
                }
            }
            unsigned char* p = &rgb[(static_cast<size_t>(y) * width + x) * 3];
            p[0] = Clamp(r + grain(rng));
            p[1] = Clamp(g + grain(rng));
            p[2] = Clamp(b + grain(rng));
        }
    }
    return rgb;
}

}  // namespace iqa_tools
