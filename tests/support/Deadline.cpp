// Waiting with a deadline for state another thread changes.
#include "tests/support/Deadline.h"

#include <thread>

namespace iqa_test {

::testing::AssertionResult Eventually(const std::function<bool()>& done, const std::string& what) {
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return ::testing::AssertionFailure()
                   << what << " did not happen within " << kDeadline.count() << " s";
        }
        std::this_thread::yield();
    }
    return ::testing::AssertionSuccess();
}

}  // namespace iqa_test
