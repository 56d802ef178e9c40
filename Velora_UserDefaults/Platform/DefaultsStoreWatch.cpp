#include <algorithm>
#include <array>
#include <filesystem>
#include <poll.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStoreWatch.h>

namespace velora {
namespace {

// A folder on a server, or one that is replaced, tells nothing.
constexpr std::chrono::milliseconds longestTrust{200};
constexpr std::chrono::milliseconds pollInterval{20};

}  // namespace

DefaultsStoreWatch::DefaultsStoreWatch(const std::string& path) : events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    constexpr std::uint32_t changes = IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
    const std::string folder = std::filesystem::path(path).parent_path().string();
    if (events_ && ::inotify_add_watch(events_.get(), folder.c_str(), changes) < 0) {
        events_.close();
    }
}

void DefaultsStoreWatch::wait(std::chrono::milliseconds timeout) {
    if (!events_) {
        std::this_thread::sleep_for(std::min(timeout, pollInterval));
        return;
    }
    pollfd waiting{.fd = events_.get(), .events = POLLIN, .revents = 0};
    if (::poll(&waiting, 1, static_cast<int>(std::min(timeout, longestTrust).count())) > 0) {
        std::array<char, 4096> events{};
        while (::read(events_.get(), events.data(), events.size()) > 0) {
        }
    }
}

}  // namespace velora
