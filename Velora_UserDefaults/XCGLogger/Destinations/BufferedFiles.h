#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/RecursiveLock.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>

namespace velora {

/// The destinations that hold lines back, to be told when the process exits. Never destroyed: a static destructor
/// may still log. Internal. Any thread.
struct BufferedFiles {
    std::atomic<bool> isExiting = false;
    RecursiveLock lock;
    std::vector<std::weak_ptr<BaseDestination>> files;

    static BufferedFiles& instance() {
        static auto& shared = *new BufferedFiles;
        return shared;
    }

    void add(std::weak_ptr<BaseDestination> file) {
        const std::scoped_lock guard(lock);
        std::erase_if(files, [](const auto& known) { return known.expired(); });
        files.push_back(std::move(file));
    }

    std::vector<std::weak_ptr<BaseDestination>> all() {
        const std::scoped_lock guard(lock);
        return files;
    }
};

}  // namespace velora
