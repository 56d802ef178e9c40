// URLs and their paths. The first line is a URL, the second a component to append, the third an extension, the rest a
// path. Components are those that the expression in appendix B of RFC 3986 finds; a path comes back from its URL.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <regex>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>

#include <Velora_UserDefaults/Platform/URL.h>

namespace velora::test {
namespace {

/// The matching of the standard library recurses for each character.
constexpr std::size_t longestForExpression = 400;

struct Parts {
    std::string scheme;
    std::string authority;
    std::string path;
    std::string tail;  ///< query and fragment
};

Parts partsOf(const std::string& url) {
    static const std::regex expression(R"(^(([^:/?#]+):)?(//([^/?#]*))?([^?#]*)(\?([^#]*))?(#([\s\S]*))?)");
    std::smatch match;
    require(std::regex_match(url, match, expression), "any text has the components of a URL");
    return {.scheme = match[2], .authority = match[4], .path = match[5], .tail = match[6].str() + match[8].str()};
}

/// Without percent-encoding, but for that of a NUL.
std::string decoded(const std::string& text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%' && text.substr(at, 3) != "%00") {
            result += static_cast<char>(std::strtol(text.substr(at + 1, 2).c_str(), nullptr, 16));
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

std::string withoutSlashesAtEnd(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

std::string nameOf(const std::string& path) {
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

/// Whether what an operation returned is a URL again, with the same scheme, authority, query and fragment.
void checkDerived(const URL& url, const URL& derived) {
    const auto again = URL::parse(derived.absoluteString());
    require(again.has_value() && *again == derived, "what comes of a URL is a URL: " + derived.absoluteString());
    if (derived.absoluteString().size() > longestForExpression) {
        return;
    }
    const Parts before = partsOf(url.absoluteString());
    const Parts after = partsOf(derived.absoluteString());
    requireEqual(after.scheme, before.scheme, "the scheme stays");
    requireEqual(after.authority, before.authority, "the authority stays");
    requireEqual(after.tail, before.tail, "query and fragment stay");
}

void checkParts(const URL& url) {
    if (url.absoluteString().size() > longestForExpression) {
        return;
    }
    const Parts parts = partsOf(url.absoluteString());
    const std::string path = withoutSlashesAtEnd(decoded(parts.path));
    requireEqual(url.scheme(), parts.scheme, "the scheme");
    requireEqual(url.path(), path, "the path");
    requireEqual(url.lastPathComponent(), nameOf(path), "the last component");
    requireSame(url.hasDirectoryPath(), parts.path.ends_with('/'), "a path that ends in a slash");
}

void checkAppending(const URL& url, std::string_view component, std::string_view extension) {
    const URL longer = url.appendingPathComponent(component);
    checkDerived(url, longer);
    require(url.appendingPathComponent(component, true).hasDirectoryPath() || (component.empty() && url.path().empty()),
            "a folder's path ends in a slash");
    if (!component.empty() && component.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos) {
        requireEqual(longer.lastPathComponent(), component, "a component that was appended is the last one");
    }
    const URL extended = url.appendingPathExtension(extension);
    checkDerived(url, extended);
    // An encoded slash is part of a name, and yet a slash of the path that comes of it.
    const bool hasEncodedSlash = url.absoluteString().find("%2") != std::string::npos;
    const bool isName = !hasEncodedSlash && !extension.empty() &&
                        extension.find_first_of(std::string_view("./\0", 3)) == extension.npos;
    if (isName && extended != url) {
        requireEqual(extended.pathExtension(), extension, "an extension that was appended is the last one");
    }
}

void checkPath(const std::string& path) {
    const URL url = URL::fileURL(path);
    require(url.isFileURL(), "the URL of a file is a file's");
    const auto parsed = URL::parse(url.absoluteString());
    require(parsed.has_value() && *parsed == url, "the URL of a file can be parsed");
    requireSame(URL::fileURL(path, true).hasDirectoryPath(), true, "the URL of a folder says so");
    if (path.starts_with('/') && path.find('\0') == std::string::npos) {
        requireEqual(url.path(), withoutSlashesAtEnd(path), "a path comes back");
        requireEqual(URL::fileURL(path, false).path(), withoutSlashesAtEnd(path), "a path comes back as a file's");
    }
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string_view text = input.line();
    const std::string_view component = input.line();
    const std::string_view extension = input.line();
    if (const auto url = velora::URL::parse(text)) {
        velora::test::requireEqual(url->absoluteString(), text, "a URL is kept as it is");
        velora::test::checkParts(*url);
        velora::test::checkAppending(*url, component, extension);
    }
    velora::test::checkPath(std::string(input.rest()));
    return 0;
}
