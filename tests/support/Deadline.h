// How long a test waits for the worker (or any other thread) before it fails: far beyond any
// healthy run, and far below ctest's limit, so that a hang shows as a failure naming what did
// not happen.
#ifndef IQA_TESTS_DEADLINE_H
#define IQA_TESTS_DEADLINE_H

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

namespace iqa_test {

constexpr std::chrono::seconds kDeadline{60};

// Waits until done() holds, at most kDeadline; otherwise fails with "<what> did not happen".
::testing::AssertionResult Eventually(const std::function<bool()>& done, const std::string& what);

}  // namespace iqa_test

#endif  // IQA_TESTS_DEADLINE_H
