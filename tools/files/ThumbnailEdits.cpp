// The shift and the colour cast, on packed RGB.
#include "tools/files/ThumbnailEdits.h"

#include <algorithm>

namespace iqa_tools {

Bytes Shifted(const Bytes& rgb, int width, int height, int shift) {
    Bytes out(rgb.size());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int from = std::min(x + shift, width - 1);
            std::copy_n(&rgb[(static_cast<size_t>(y) * width + from) * 3], 3,
                        &out[(static_cast<size_t>(y) * width + x) * 3]);
        }
    }
    return out;
}

Bytes ColourCast(Bytes rgb) {
    for (size_t i = 0; i + 2 < rgb.size(); i += 3) {
        rgb[i] = static_cast<unsigned char>(std::min(255, rgb[i] * 5 / 4 + 30));
        rgb[i + 1] = static_cast<unsigned char>(rgb[i + 1] * 3 / 4);
        rgb[i + 2] = static_cast<unsigned char>(std::min(255, rgb[i + 2] + 45));
    }
    return rgb;
}

}  // namespace iqa_tools
