#pragma once

#include <cstddef>
#include <memory>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

class XCGLogger;

/// A place for a logger, or for none, that any thread may read, replace or clear at any time. Usable from the
/// constructors and destructors of static objects, and on both sides of a `fork`.
///
/// What was read stays usable however the place changes afterwards. All objects of this class are the same place.
class VELORA_EXPORT SharedLogger {
public:
    constexpr SharedLogger() = default;
    SharedLogger(const SharedLogger&) = delete;
    SharedLogger& operator=(const SharedLogger&) = delete;
    ~SharedLogger() = default;

    /// The logger that was assigned last; null if there is none.
    std::shared_ptr<XCGLogger> load() const;
    /// The same, so that the place can be read like a pointer.
    operator std::shared_ptr<XCGLogger>() const { return load(); }  // NOLINT(google-explicit-constructor)

    /// The logger for one expression, which it lives at least as long as: `velora::logger->info("text")`. Another
    /// thread may clear the place at any time, so who is not sure that there is one takes `load()` and asks that.
    std::shared_ptr<XCGLogger> operator->() const { return load(); }
    /// Whether there is a logger at the moment.
    explicit operator bool() const { return load() != nullptr; }
    /// Whether there is none at the moment.
    bool operator==(std::nullptr_t /*none*/) const { return load() == nullptr; }
    /// Whether `logger` is the one at the moment.
    bool operator==(const std::shared_ptr<XCGLogger>& logger) const { return load() == logger; }

    /// Puts `logger` in the place of the one before; null clears it.
    void store(std::shared_ptr<XCGLogger> logger);
    /// The same, as an assignment.
    SharedLogger& operator=(std::shared_ptr<XCGLogger> logger);
};

}  // namespace velora
