#pragma once

#include <chrono>
#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>

namespace velora {

/// Notices that something happens to the files of one folder, from its construction on. Internal; for one thread.
class DefaultsStoreWatch {
public:
    /// Watches the folder of `path`. If it cannot be watched, `wait` sleeps for short times.
    explicit DefaultsStoreWatch(const std::string& path);

    /// Waits until something happens or may have happened, no longer than `timeout`.
    void wait(std::chrono::milliseconds timeout);

private:
    Descriptor events_;
};

}  // namespace velora
