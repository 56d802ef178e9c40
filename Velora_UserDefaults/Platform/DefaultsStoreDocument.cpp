#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreScanner.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>

namespace velora {
namespace {

using Member = DefaultsStoreDocument::Member;

std::optional<std::string> keyOf(std::string_view name) {
    if (name.find('\\') == std::string_view::npos) {
        return std::string(name.substr(1, name.size() - 2));
    }
    const auto parsed = nlohmann::json::parse(name, nullptr, false);
    return parsed.is_string() ? std::optional<std::string>(parsed.get<std::string>()) : std::nullopt;
}

/// What tells one key from another, also keys that are no text.
std::string identityOf(const Member& member) {
    return member.key ? "=" + *member.key : member.name;
}

std::optional<Member> scanMember(DefaultsStoreScanner& scanner) {
    scanner.skipBlanks();
    const auto name = scanner.string();
    if (!name) {
        return std::nullopt;
    }
    scanner.skipBlanks();
    if (!scanner.skipCharacter(':')) {
        return std::nullopt;
    }
    scanner.skipBlanks();
    const auto value = scanner.value();
    if (!value) {
        return std::nullopt;
    }
    scanner.skipBlanks();
    return Member{.key = keyOf(*name), .name = std::string(*name), .json = std::string(*value)};
}

/// Scans the whole of an object. Returns whether it is one.
bool scanObject(DefaultsStoreScanner& scanner, std::vector<Member>& members) {
    scanner.skipBlanks();
    if (!scanner.skipCharacter('{')) {
        return false;
    }
    scanner.skipBlanks();
    if (!scanner.skipCharacter('}')) {
        do {
            auto member = scanMember(scanner);
            if (!member) {
                return false;
            }
            members.push_back(*std::move(member));
        } while (scanner.skipCharacter(','));
        if (!scanner.skipCharacter('}')) {
            return false;
        }
    }
    scanner.skipBlanks();
    return scanner.atEnd();
}

}  // namespace

std::optional<DefaultsStoreDocument> DefaultsStoreDocument::parse(std::string_view text, std::string& fault) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const std::size_t mark = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    DefaultsStoreScanner scanner(text.substr(mark));
    DefaultsStoreDocument document;
    if (!scanObject(scanner, document.members_)) {
        fault = fmt::format("no well-formed JSON object at byte {} of {}", scanner.position() + mark, text.size());
        return std::nullopt;
    }
    return document;
}

bool DefaultsStoreDocument::set(std::string_view key, std::string_view json) {
    const auto hasKey = [key](const Member& member) { return member.key == key; };
    const auto last = std::find_if(members_.rbegin(), members_.rend(), hasKey);
    if (last == members_.rend()) {
        members_.push_back({.key = std::string(key), .name = defaultsStoreJSON(key), .json = std::string(json)});
        return true;
    }
    if (last->json == json) {
        return false;
    }
    last->json = json;
    // Earlier members of the key would only mislead a reader of the file now.
    const auto counting = std::prev(last.base());
    members_.erase(std::remove_if(members_.begin(), counting, hasKey), counting);
    return true;
}

bool DefaultsStoreDocument::setAll(const DefaultsStoreDocument& other) {
    struct Place {
        std::size_t counting;
        bool isSet;
    };
    std::unordered_map<std::string, Place> places;
    for (std::size_t index = 0; index < members_.size(); ++index) {
        places[identityOf(members_[index])] = {.counting = index, .isSet = false};
    }
    bool changed = false;
    for (const Member& member : other.members_) {
        const auto [found, isNew] = places.try_emplace(identityOf(member), Place{members_.size(), true});
        if (isNew) {
            members_.push_back(member);
        } else if (Member& counting = members_[found->second.counting]; counting.json != member.json) {
            counting.json = member.json;
            found->second.isSet = true;
        } else {
            continue;
        }
        changed = true;
    }
    // As with set(), of each key that was set only the member that counts stays.
    std::size_t index = 0;
    std::erase_if(members_, [&](const Member& member) {
        const Place& place = places.at(identityOf(member));
        return place.counting != index++ && place.isSet;
    });
    return changed;
}

bool DefaultsStoreDocument::remove(std::string_view key) {
    return std::erase_if(members_, [key](const Member& member) { return member.key == key; }) != 0;
}

std::string DefaultsStoreDocument::text() const {
    std::string text = "{";
    std::string_view separator = "\n    ";
    for (const Member& member : members_) {
        text.append(separator).append(member.name).append(": ").append(member.json);
        separator = ",\n    ";
    }
    return text.append(members_.empty() ? "}\n" : "\n}\n");
}

}  // namespace velora
