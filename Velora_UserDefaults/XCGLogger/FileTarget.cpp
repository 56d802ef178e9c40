#include <Velora_UserDefaults/XCGLogger/FileTarget.h>

namespace velora {

namespace {

template <typename Held>
std::optional<URL> urlHeldAs(const std::any& value) {
    const Held* const held = std::any_cast<Held>(&value);
    return held == nullptr ? std::nullopt : FileTarget(*held).url();
}

}  // namespace

FileTarget::FileTarget(const char* path) {
    if (path != nullptr) {
        url_ = URL::fileURL(path);
    }
}

FileTarget::FileTarget(const URL& url) {
    if (url.isFileURL()) {
        url_ = url;
    }
}

FileTarget::FileTarget(const std::any& value) {
    using Reader = std::optional<URL> (*)(const std::any&);
    static constexpr Reader readers[] = {
        urlHeldAs<std::string>,      urlHeldAs<const char*>,           urlHeldAs<char*>,
        urlHeldAs<std::string_view>, urlHeldAs<std::filesystem::path>, urlHeldAs<URL>};
    for (const Reader read : readers) {
        if (std::optional<URL> url = read(value)) {
            url_ = std::move(url);
            return;
        }
    }
}

}  // namespace velora
