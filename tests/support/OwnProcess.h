#pragma once

#include <array>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace velora::test {

/// Runs this test program again as a process of its own that runs the one test `name`, which may be a disabled
/// one, with `path` in its environment as VELORA_TEST_LOG; returns its status as waitpid(2) gives it, -1 if it
/// could not be started.
inline int statusOfProcess(const std::string& name, const std::string& path) {
    const std::string filter = "--gtest_filter=" + name;
    std::array<const char*, 5> arguments{"test", filter.c_str(), "--gtest_also_run_disabled_tests", "--gtest_brief=1",
                                         nullptr};
    ::setenv("VELORA_TEST_LOG", path.c_str(), 1);
    pid_t process = -1;
    int status = -1;
    if (::posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, const_cast<char**>(arguments.data()), environ) ==
        0) {
        ::waitpid(process, &status, 0);
    }
    ::unsetenv("VELORA_TEST_LOG");
    return status;
}

}  // namespace velora::test
