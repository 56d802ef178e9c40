#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// A URL as text with components (RFC 3986), mainly the URL of a file (RFC 8089).
///
///     URL folder = URL::fileURL("/var/log/my app", true);
///     URL file = folder.appendingPathComponent("session").appendingPathExtension("log");
///     file.absoluteString();  // "file:///var/log/my%20app/session.log"
///     file.path();            // "/var/log/my app/session.log"
///
/// A plain value: copies are independent, and distinct objects may be used on distinct threads; one
/// object may be read by many threads at once. Nothing here looks at the file system, except that
/// a relative path needs the current directory. The text is kept as it is: "." and ".." are not
/// resolved, nor is case folded. Component operations do not change the query or the fragment.
class VELORA_EXPORT URL {
public:
    /// The empty URL: no text, no scheme, no path. It is no file URL and stays empty under every
    /// operation. A URL that was moved from is one.
    URL() = default;

    /// The URL of the file at `path`; a "/" at the end marks a directory and is kept. A relative
    /// path is taken from the current directory (from "/" if there is none any more), an empty one
    /// is the current directory. "~" is an ordinary character. Every byte that may not stand in
    /// the path of a URL is percent-encoded by itself, so that any path comes back from `path()`,
    /// be it valid UTF-8 or not; only a NUL byte, which no file name can hold, does not.
    static URL fileURL(std::string_view path);

    /// As above; `isDirectory` alone says whether the URL ends in "/". "/" is always a directory.
    static URL fileURL(std::string_view path, bool isDirectory);

    /// The URL that `text` is, kept byte for byte; nothing unless it is a URI with a scheme as
    /// RFC 3986 writes it (which has ASCII only, and spaces percent-encoded).
    static std::optional<URL> parse(std::string_view text);

    /// Whether the scheme is "file", in any case, on this machine: without a host or on "localhost".
    [[nodiscard]] bool isFileURL() const;

    /// The path with percent-encoding decoded, without "/" at the end unless it is the root's.
    /// Bytes are returned as they come out, valid UTF-8 or not, but for "%00", which stays encoded:
    /// a path never holds a NUL byte that would cut it short to the name of another file.
    [[nodiscard]] std::string path() const;

    /// The whole URL, percent-encoded.
    [[nodiscard]] const std::string& absoluteString() const { return text_; }

    /// The scheme as written, without the colon.
    [[nodiscard]] std::string scheme() const;

    /// The last component of the path, decoded; "/" for the root, empty for an empty path.
    [[nodiscard]] std::string lastPathComponent() const;

    /// The last component's text after its last "."; empty if there is none, or if the "." leads or
    /// ends the name.
    [[nodiscard]] std::string pathExtension() const;

    /// Whether the path ends in "/".
    [[nodiscard]] bool hasDirectoryPath() const;

    /// This URL with `name` added to its path, separated by one "/". `name` is plain text, encoded
    /// as by `fileURL`; it may hold several components. Slashes at its start are dropped; one at its
    /// end, or `isDirectory`, ends the path in "/". An empty name adds nothing else.
    [[nodiscard]] URL appendingPathComponent(std::string_view name, bool isDirectory = false) const;

    /// This URL with "." and `extension` added to the last component; a directory keeps its "/".
    /// Unchanged if `extension` is empty or holds a "/", or if there is no name to add it to (the
    /// root, an empty path).
    [[nodiscard]] URL appendingPathExtension(std::string_view extension) const;

    /// Whether two URLs have the same text. "file:///a" and "file:///a/" differ, and so do
    /// "file:///a" and "FILE:///a".
    bool operator==(const URL& other) const = default;

private:
    explicit URL(std::string text) : text_(std::move(text)) {}
    [[nodiscard]] URL withEncodedPath(std::string_view path) const;

    std::string text_;
};

}  // namespace velora
