#pragma once

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace velora::test {

/// Runs `work` in a forked child and returns what it returns (0 to 255); -1 if the child died or still ran
/// after two minutes, as one that waits for a lock for ever. The child ends without running
/// destructors, so tests there use no assertions but return what they found.
template <class Work>
int resultOfForkedChild(Work work) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(120);
        ::_exit(work());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
        return -1;
    }
    return WEXITSTATUS(status);
}

}  // namespace velora::test
