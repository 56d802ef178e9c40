#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string_view>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/LocalTime.h>

namespace velora {

namespace {

// localtime_r(3) has a lock of its own that nothing frees in a forked child. Calls go through this one, which a fork
// waits for, so that no child inherits the other one taken.
constinit std::mutex localTimeLock;

void takeLock(void* /*context*/) {
    localTimeLock.lock();
}

void releaseLock(void* /*context*/) {
    localTimeLock.unlock();
}

// Never destroyed: the last dates are formatted by destructors of static objects. Made at the start: registering waits
// for a fork in progress, which may itself wait for a lock that a thread holds while it formats.
[[maybe_unused]] const ForkHandler& atFork =
    *new ForkHandler({.beforeFork = takeLock, .inParent = releaseLock, .inChild = releaseLock}, nullptr);

bool isKnownToICU(std::string_view identifier) {
    const icu::UnicodeString text =
        icu::UnicodeString::fromUTF8({identifier.data(), static_cast<std::int32_t>(identifier.size())});
    icu::UnicodeString canonical;
    UBool isSystemIdentifier = 0;
    UErrorCode status = U_ZERO_ERROR;
    icu::TimeZone::getCanonicalID(text, canonical, isSystemIdentifier, status);
    return U_SUCCESS(status) && isSystemIdentifier != 0;
}

}  // namespace

LocalTime localTimeAt(std::int64_t second) {
    const std::time_t time = second;
    std::tm local{};
    const std::scoped_lock locked(localTimeLock);
    if (::localtime_r(&time, &local) == nullptr) {
        return {.offset = 0, .name = "UTC"};
    }
    return {.offset = static_cast<std::int32_t>(local.tm_gmtoff), .name = local.tm_zone};
}

std::optional<std::string> timeZoneOfTheCLibraryAlone() {
    const char* const value = std::getenv("TZ");
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    std::string_view identifier = value;
    for (const std::string_view prefix : {":", "posix/"}) {
        if (identifier.starts_with(prefix)) {
            identifier.remove_prefix(prefix.size());
        }
    }
    if (isKnownToICU(identifier)) {
        return std::nullopt;
    }
    const std::scoped_lock locked(localTimeLock);
    ::tzset();
    return value;
}

}  // namespace velora
