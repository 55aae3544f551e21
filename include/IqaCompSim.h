// The SSIM stage: mean structural similarity of two byte planes over 8x8 blocks.
#ifndef IQA_COMP_SIM_H
#define IQA_COMP_SIM_H

#include "IqaProcessNode.h"

namespace IQA {

class IQA_EXPORT IqaCompSim : public IqaProcessNode {
  public:
    IqaCompSim();
    ~IqaCompSim() override;

    // Stores the SSIM of thumbBuffer and jpegBuffer (thumbWidth x thumbHeight) in info.ssim;
    // true exactly when the score is not 0.0.
    bool ProcessImage(IqaImageInfo& info) override;

    // Both buffers are read as planes of width bytes by height rows (channels are not
    // separated). Returns the mean over all whole 8x8 blocks, or 0.0 when there is none.
    double CalculateRgbSsim(const unsigned char* image1, const unsigned char* image2, int width,
                            int height);
};

}  // namespace IQA

#endif  // IQA_COMP_SIM_H
