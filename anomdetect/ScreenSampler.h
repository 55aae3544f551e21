// The one sampling check behind both screen checks; they differ only in the chroma they test.
#ifndef IQA_ANOMDETECT_SCREEN_SAMPLER_H
#define IQA_ANOMDETECT_SCREEN_SAMPLER_H

namespace IQA {

// Draws two n x n squares (one in each half of the frame) with rand() and returns true at the
// (T + 1)-th pixel whose luma is 0 and whose chroma pair is (chroma, chroma), T = n * n / 2.
// Log lines carry `operation`.
bool SampleScreen(const unsigned char* buffer, unsigned int width, unsigned int height, int stride,
                  unsigned char chroma, const char* operation);

}  // namespace IQA

#endif  // IQA_ANOMDETECT_SCREEN_SAMPLER_H
