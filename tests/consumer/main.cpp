// Drives the installed library through its exported headers only.
#include <IqaAnomDetect.h>
#include <IqaCompSim.h>
#include <IqaTaskManager.h>

#include <vector>

int main() {
    IQA::IqaTaskManager manager;
    manager.AddRequest(Request{REQUEST_BEGIN_PROCESS, "", false});  // dropped: nothing listed
    std::vector<unsigned char> plane(64, 9);
    IQA::IqaCompSim ssim;
    const bool same = ssim.CalculateRgbSsim(plane.data(), plane.data(), 8, 8) == 1.0;
    std::vector<unsigned char> frame(8 * 8 * 3 / 2, 0);
    IQA::IqaAnomDetect().AnomDetect(frame.data(), 8, 8, 8, "consumer");
    return same ? 0 : 1;
}
