#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/Lazy.h>

namespace velora {

struct Bundle::Content {
    using Value = std::shared_ptr<const std::any>;

    /// Puts `value` in the place of that of `key`, and returns the one before. With the mutex held.
    Value replace(std::string_view key, Value value) {
        const auto entry = info.find(key);
        if (entry == info.end()) {
            info.emplace(key, std::move(value));
            return nullptr;
        }
        return std::exchange(entry->second, std::move(value));
    }

    ForkSafeMutex mutex;
    // Shared, so that values are copied and destroyed, which may run anybody's code, with the mutex released.
    std::map<std::string, Value, std::less<>> info;
};

namespace {

std::any withTextAsString(std::any value) {
    if (const auto* text = std::any_cast<std::string_view>(&value)) {
        return std::string(*text);
    }
    if (const auto* text = std::any_cast<const char*>(&value)) {
        return *text == nullptr ? std::any() : std::string(*text);
    }
    if (const auto* text = std::any_cast<char*>(&value)) {
        return *text == nullptr ? std::any() : std::string(*text);
    }
    return value;
}

}  // namespace

Bundle::Bundle() : content_(std::make_unique<Content>()) {}

Bundle::~Bundle() = default;

Bundle& Bundle::main() {
    // Never destroyed: destructors of static objects may still ask.
    static constinit Lazy<Bundle> bundle;
    return bundle.get([] { return new Bundle; });
}

void Bundle::setInfo(std::string_view key, std::any value) {
    auto shared = std::make_shared<const std::any>(withTextAsString(std::move(value)));
    Content::Value before;
    const std::scoped_lock lock(content_->mutex);
    before = content_->replace(key, std::move(shared));
}

std::any Bundle::info(std::string_view key) const {
    Content::Value value;
    {
        const std::scoped_lock lock(content_->mutex);
        const auto entry = content_->info.find(key);
        if (entry != content_->info.end()) {
            value = entry->second;
        }
    }
    return value == nullptr ? std::any() : *value;
}

std::optional<std::string> Bundle::infoText(std::string_view key) const {
    const std::any value = info(key);
    const auto* text = std::any_cast<std::string>(&value);
    return text == nullptr ? std::nullopt : std::optional(*text);
}

void Bundle::setVersion(std::string_view shortVersion, std::string_view build) {
    auto sharedShortVersion = std::make_shared<const std::any>(std::string(shortVersion));
    auto sharedBuild = std::make_shared<const std::any>(std::string(build));
    std::array<Content::Value, 2> before;
    const std::scoped_lock lock(content_->mutex);
    before = {content_->replace(shortVersionKey, std::move(sharedShortVersion)),
              content_->replace(versionKey, std::move(sharedBuild))};
}

}  // namespace velora
