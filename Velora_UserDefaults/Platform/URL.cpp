#include <algorithm>
#include <filesystem>
#include <strings.h>
#include <system_error>
#include <uriparser/Uri.h>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/URL.h>

namespace velora {
namespace {

/// Where the components of a URL lie in its text.
struct Components {
    std::string_view scheme;
    std::string_view authority;
    std::string_view path;
};

/// Splits a URL that is known to be well-formed, as appendix B of RFC 3986 does.
Components split(std::string_view url) {
    Components components;
    const std::size_t colon = url.find(':');
    if (colon == std::string_view::npos) {
        return components;
    }
    components.scheme = url.substr(0, colon);
    std::string_view rest = url.substr(colon + 1);
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        components.authority = rest.substr(0, rest.find_first_of("/?#"));
        rest.remove_prefix(components.authority.size());
    }
    components.path = rest.substr(0, rest.find_first_of("?#"));
    return components;
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ::strncasecmp(left.data(), right.data(), left.size()) == 0;
}

/// Whether a path may hold `character` as it is: "/" and what RFC 3986 calls pchar.
bool standsForItself(char character) {
    constexpr std::string_view allowed =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~!$&'()*+,;=:@/";
    return allowed.find(character) != std::string_view::npos;
}

std::string percentEncoded(std::string_view path) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(path.size());
    for (const char character : path) {
        if (standsForItself(character)) {
            encoded += character;
            continue;
        }
        const auto byte = static_cast<unsigned char>(character);
        encoded += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
    }
    return encoded;
}

unsigned hexadecimalValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned>(digit - '0');
    }
    // The letters of both cases differ in this bit alone.
    return static_cast<unsigned>((digit | 0x20) - 'a') + 10;
}

std::string percentDecoded(std::string_view encoded) {
    std::string decoded;
    decoded.reserve(encoded.size());
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] != '%' || encoded.substr(i, 3) == "%00") {
            decoded += encoded[i];
            continue;
        }
        decoded += static_cast<char>(hexadecimalValue(encoded[i + 1]) * 16 + hexadecimalValue(encoded[i + 2]));
        i += 2;
    }
    return decoded;
}

std::string_view withoutSlashesAtEnd(std::string_view path) {
    // npos + 1 is 0: a path of nothing but slashes becomes empty.
    return path.substr(0, path.find_last_not_of('/') + 1);
}

std::string absolutePath(std::string_view path) {
    if (path.starts_with('/')) {
        return std::string(path);
    }
    std::error_code error;
    std::string absolute = std::filesystem::current_path(error).string();
    if (!absolute.ends_with('/')) {
        absolute += '/';
    }
    return absolute.append(path);
}

}  // namespace

URL URL::fileURL(std::string_view path) {
    return URL("file://" + percentEncoded(absolutePath(path)));
}

URL URL::fileURL(std::string_view path, bool isDirectory) {
    std::string absolute(withoutSlashesAtEnd(absolutePath(path)));
    if (isDirectory || absolute.empty()) {
        absolute += '/';
    }
    return fileURL(absolute);
}

std::optional<URL> URL::parse(std::string_view text) {
    UriUriA uri{};
    const char* errorPosition = nullptr;
    if (::uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), &errorPosition) != URI_SUCCESS) {
        return std::nullopt;
    }
    const bool hasScheme = uri.scheme.first != nullptr;
    ::uriFreeUriMembersA(&uri);
    return hasScheme ? std::optional(URL(std::string(text))) : std::nullopt;
}

bool URL::isFileURL() const {
    const Components components = split(text_);
    return equalIgnoringCase(components.scheme, "file") &&
           (components.authority.empty() || equalIgnoringCase(components.authority, "localhost"));
}

std::string URL::path() const {
    std::string decoded = percentDecoded(split(text_).path);
    if (!decoded.empty()) {
        decoded.resize(std::max<std::size_t>(withoutSlashesAtEnd(decoded).size(), 1));
    }
    return decoded;
}

std::string URL::scheme() const {
    return std::string(split(text_).scheme);
}

std::string URL::lastPathComponent() const {
    const std::string whole = path();
    return std::string(velora::lastPathComponent(whole));
}

std::string URL::pathExtension() const {
    const std::string whole = path();
    return std::string(velora::pathExtension(whole));
}

bool URL::hasDirectoryPath() const {
    return split(text_).path.ends_with('/');
}

URL URL::appendingPathComponent(std::string_view name, bool isDirectory) const {
    if (text_.empty()) {
        return *this;
    }
    name.remove_prefix(std::min(name.find_first_not_of('/'), name.size()));
    std::string path(split(text_).path);
    if (!name.empty() && !path.ends_with('/')) {
        path += '/';
    }
    path += percentEncoded(name);
    if (isDirectory && !path.ends_with('/')) {
        path += '/';
    }
    return withEncodedPath(path);
}

URL URL::appendingPathExtension(std::string_view extension) const {
    const std::string_view path = split(text_).path;
    const std::string_view stem = withoutSlashesAtEnd(path);
    if (extension.empty() || stem.empty() || extension.find('/') != std::string_view::npos) {
        return *this;
    }
    std::string extended(stem);
    extended.append(".").append(percentEncoded(extension)).append(path.substr(stem.size()));
    return withEncodedPath(extended);
}

URL URL::withEncodedPath(std::string_view path) const {
    const std::string_view oldPath = split(text_).path;
    std::string text = text_;
    text.replace(static_cast<std::size_t>(oldPath.data() - text_.data()), oldPath.size(), path);
    return URL(std::move(text));
}

}  // namespace velora
