#include <map>
#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/RecursiveLock.h>

namespace velora {

struct Bundle::Content {
    RecursiveLock lock;
    std::map<std::string, std::any, std::less<>> info;
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
    static Bundle& bundle = *new Bundle;
    return bundle;
}

void Bundle::setInfo(std::string_view key, std::any value) {
    value = withTextAsString(std::move(value));
    const std::scoped_lock locked(content_->lock);
    const auto entry = content_->info.find(key);
    if (entry != content_->info.end()) {
        // Swapped out, so that the old value goes when the lock is free again.
        entry->second.swap(value);
    } else {
        content_->info.emplace(key, std::move(value));
    }
}

std::any Bundle::info(std::string_view key) const {
    const std::scoped_lock locked(content_->lock);
    const auto entry = content_->info.find(key);
    return entry == content_->info.end() ? std::any() : entry->second;
}

std::optional<std::string> Bundle::infoText(std::string_view key) const {
    const std::any value = info(key);
    const auto* text = std::any_cast<std::string>(&value);
    return text == nullptr ? std::nullopt : std::optional(*text);
}

void Bundle::setVersion(std::string_view shortVersion, std::string_view build) {
    const std::scoped_lock locked(content_->lock);
    setInfo(shortVersionKey, std::string(shortVersion));
    setInfo(versionKey, std::string(build));
}

}  // namespace velora
