#pragma once

#include <any>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/URL.h>

namespace velora {

/// Where a log file is or an archive shall go: a path or a file URL, in any of the forms that a host has
/// at hand.
///
/// Text is always a path, never parsed as a URL. A null text, a URL that is no file URL, and a `std::any`
/// that holds neither text, a path nor a URL, are no target: `url()` is empty. A value; not synchronised.
class VELORA_EXPORT FileTarget {
public:
    /// A path; null is no target.
    FileTarget(const char* path);                                      // NOLINT(google-explicit-constructor)
    FileTarget(std::string_view path) : url_(URL::fileURL(path)) {}    // NOLINT(google-explicit-constructor)
    FileTarget(const std::string& path) : url_(URL::fileURL(path)) {}  // NOLINT(google-explicit-constructor)
    FileTarget(const std::filesystem::path& path)                      // NOLINT(google-explicit-constructor)
        : url_(URL::fileURL(path.native())) {}
    /// A file URL, or a value that holds a path or one.
    FileTarget(const URL& url);         // NOLINT(google-explicit-constructor)
    FileTarget(const std::any& value);  // NOLINT(google-explicit-constructor)

    /// The file's URL; empty if this is no target.
    const std::optional<URL>& url() const noexcept { return url_; }

private:
    std::optional<URL> url_;
};

}  // namespace velora
