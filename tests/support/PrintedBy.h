#pragma once

#include <gtest/gtest.h>
#include <string>

namespace velora::test {

/// What `work` prints to standard output.
template <typename Work>
std::string printedBy(Work work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

}  // namespace velora::test
