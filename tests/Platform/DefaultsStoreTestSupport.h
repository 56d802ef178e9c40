#pragma once

#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora::test {

/// Collects what a store reports.
class Reports {
public:
    explicit Reports(DefaultsStore& store) {
        store.setReportHandler([this](const std::string& line) {
            const std::scoped_lock locked(mutex_);
            lines_.push_back(line);
        });
    }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    std::vector<std::string> lines() const {
        const std::scoped_lock locked(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// Makes a file look as if it was last modified long ago, so that nobody can be about to finish it.
inline void makeOld(const std::string& path) {
    const timespec times[2] = {{.tv_sec = 1'000'000'000, .tv_nsec = 0}, {.tv_sec = 1'000'000'000, .tv_nsec = 0}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
}

/// The names in a folder that begin with `prefix`.
inline std::vector<std::string> filesBeginningWith(const std::filesystem::path& folder, const std::string& prefix) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (const std::string name = entry.path().filename().string(); name.starts_with(prefix)) {
            names.push_back(name);
        }
    }
    return names;
}

/// Runs `body` in a forked process and returns its exit status: what `body` returned, or -1 if it was killed.
template <typename Body>
int inChildProcess(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace velora::test
