// Black and green screen detection on raw YUV 4:2:0 frames, reported as big-data events.
#ifndef IQA_ANOM_DETECT_H
#define IQA_ANOM_DETECT_H

#include <string>

#include "IqaExport.h"

namespace IQA {

// Frame layout: height luma rows of stride bytes, then the chroma plane at stride x height,
// with (even-rounded width)-byte rows of (U, V) or (V, U) pairs. The caller guarantees the
// buffer holds what that indexing reaches. Sampling uses the C library's rand().
class IQA_EXPORT IqaAnomDetect {
  public:
    IqaAnomDetect();
    ~IqaAnomDetect();

    // Green check, then (only if it finds nothing) the black check; an anomaly is logged and
    // reported under name.
    void AnomDetect(const unsigned char* buffer, unsigned int width, unsigned int height,
                    int stride, const std::string& name);
    // True when more than a quarter of two sampled squares have luma 0 and chroma 0.
    bool CheckGreenScreen(const unsigned char* buffer, unsigned int width, unsigned int height,
                          int stride);
    // True when more than a quarter of two sampled squares have luma 0 and chroma 128.
    bool CheckBlackScreen(const unsigned char* buffer, unsigned int width, unsigned int height,
                          int stride);
};

}  // namespace IQA

#endif  // IQA_ANOM_DETECT_H
