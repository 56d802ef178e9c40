#include <cstddef>
#include <mutex>
#include <string>
#include <syslog.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/SystemLog.h>

namespace velora {

namespace {

// A datagram may take about 200 KiB with Linux's default socket buffers; a longer one is lost as a whole.
constexpr std::size_t longestEntry = std::size_t{128} * 1024;

// syslog(3) has a lock of its own that nothing frees in a forked child. Calls go through this one, which a fork waits
// for, so that no child inherits the other one taken.
constinit std::mutex syslogLock;

void takeLock(void* /*context*/) {
    syslogLock.lock();
}

void releaseLock(void* /*context*/) {
    syslogLock.unlock();
}

// Registered before there are threads that could fork; never destroyed, since the last messages come from destructors
// of static objects.
[[maybe_unused]] const ForkHandler& atFork =
    *new ForkHandler({.beforeFork = takeLock, .inParent = releaseLock, .inChild = releaseLock}, nullptr);

void sendEntry(std::string_view entry) {
    const std::scoped_lock locked(syslogLock);
    const StandardStreamsInUse inUse;  // it opens the log's socket and keeps it
    ::syslog(LOG_USER | LOG_NOTICE, "%.*s", static_cast<int>(entry.size()), entry.data());
}

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// How many bytes of `message` go into its first entry.
std::size_t firstEntrySize(std::string_view message) {
    if (message.size() <= longestEntry) {
        return message.size();
    }
    constexpr std::size_t longestCharacter = 4;
    for (std::size_t size = longestEntry; size > longestEntry - longestCharacter; --size) {
        if (!continuesCharacter(message[size])) {
            return size;
        }
    }
    return longestEntry;  // not UTF-8
}

std::string withVisibleNuls(std::string_view message) {
    std::string visible;
    for (const char byte : message) {
        if (byte == '\0') {
            visible += "\u2400";
        } else {
            visible += byte;
        }
    }
    return visible;
}

}  // namespace

void systemLog(std::string_view message) {
    std::string visible;
    if (message.find('\0') != std::string_view::npos) {
        visible = withVisibleNuls(message);
        message = visible;
    }
    do {
        const std::size_t size = firstEntrySize(message);
        sendEntry(message.substr(0, size));
        message.remove_prefix(size);
    } while (!message.empty());
}

}  // namespace velora
