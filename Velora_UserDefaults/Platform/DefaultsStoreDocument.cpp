#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>
#include <Velora_UserDefaults/Platform/Text.h>

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

/// Walks over JSON text and checks that it is well formed. A step that returns false leaves the position anywhere.
class Scanner {
public:
    explicit Scanner(std::string_view json) : json_(json) {}

    bool atEnd() {
        skipBlanks();
        return position_ == json_.size();
    }
    std::size_t position() const { return position_; }

    /// Walks over blanks, and over `character` if it comes next.
    bool skip(char character) {
        skipBlanks();
        return take(character);
    }
    std::optional<std::string_view> string() {
        return piece([this] { return skipString(); });
    }
    std::optional<std::string_view> value() {
        return piece([this] { return skipValue(); });
    }

private:
    char next() const { return position_ == json_.size() ? '\0' : json_[position_]; }
    void skipAll(std::string_view characters) {
        position_ = std::min(json_.find_first_not_of(characters, position_), json_.size());
    }
    void skipBlanks() { skipAll(" \t\n\r"); }
    bool take(char character) {
        if (position_ == json_.size() || json_[position_] != character) {
            return false;
        }
        ++position_;
        return true;
    }
    bool take(std::string_view word) {
        if (!json_.substr(position_).starts_with(word)) {
            return false;
        }
        position_ += word.size();
        return true;
    }
    template <typename Walk>
    std::optional<std::string_view> piece(Walk walk) {
        skipBlanks();
        const std::size_t begin = position_;
        return walk() ? std::optional(json_.substr(begin, position_ - begin)) : std::nullopt;
    }

    bool skipString() {
        const std::size_t begin = position_;
        if (!take('"')) {
            return false;
        }
        while (next() != '"') {
            if (static_cast<unsigned char>(next()) < ' ') {  // a control character or the end of the text
                return false;
            }
            if (!take('\\')) {
                ++position_;
            } else if (!skipEscape()) {
                return false;
            }
        }
        ++position_;
        return isValidUTF8(json_.substr(begin, position_ - begin));
    }
    bool skipEscape() {
        if (take('u')) {
            const std::string_view digits = json_.substr(position_, 4);
            position_ += digits.size();
            return digits.size() == 4 && digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
        }
        const bool isKnown = next() != '\0' && std::string_view("\"\\/bfnrt").find(next()) != std::string_view::npos;
        position_ += isKnown ? 1 : 0;
        return isKnown;
    }
    bool skipDigits() {
        const std::size_t begin = position_;
        skipAll("0123456789");
        return position_ != begin;
    }
    bool skipNumber() {
        take('-');
        if ((!take('0') && !skipDigits()) || (take('.') && !skipDigits())) {
            return false;
        }
        if (take('e') || take('E')) {
            [[maybe_unused]] const bool isSigned = take('+') || take('-');
            return skipDigits();
        }
        return true;
    }
    bool skipScalar() {
        return next() == '"' ? skipString() : take("true") || take("false") || take("null") || skipNumber();
    }
    bool skipValue() {
        std::string closing;  // the brackets that have still to come, the next one last
        do {
            skipBlanks();
            bool isComplete = true;
            if (next() == '{' || next() == '[') {
                if (closing.size() == DefaultsStoreDocument::maximumDepth) {
                    return false;
                }
                closing.push_back(next() == '{' ? '}' : ']');
                ++position_;
                skipBlanks();
                isComplete = next() == closing.back();
            } else if (!skipScalar()) {
                return false;
            }
            while (isComplete && !closing.empty()) {
                if (skip(closing.back())) {
                    closing.pop_back();
                } else if (skip(',')) {
                    isComplete = false;
                } else {
                    return false;
                }
            }
            if (!closing.empty() && closing.back() == '}' && !(string() && skip(':'))) {
                return false;
            }
        } while (!closing.empty());
        return true;
    }

    std::string_view json_;
    std::size_t position_ = 0;
};

/// Scans the whole of an object. Returns whether it is one.
bool scanObject(Scanner& scanner, std::vector<Member>& members) {
    if (!scanner.skip('{')) {
        return false;
    }
    if (scanner.skip('}')) {
        return scanner.atEnd();
    }
    do {
        const auto name = scanner.string();
        const auto value = name && scanner.skip(':') ? scanner.value() : std::nullopt;
        if (!value) {
            return false;
        }
        members.push_back({.key = keyOf(*name), .name = std::string(*name), .json = std::string(*value)});
    } while (scanner.skip(','));
    return scanner.skip('}') && scanner.atEnd();
}

}  // namespace

std::optional<DefaultsStoreDocument> DefaultsStoreDocument::parse(std::string_view text, std::string& fault) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    const std::size_t mark = text.starts_with(byteOrderMark) ? byteOrderMark.size() : 0;
    Scanner scanner(text.substr(mark));
    DefaultsStoreDocument document;
    if (!scanObject(scanner, document.members_)) {
        fault = fmt::format("no well-formed JSON object at byte {} of {}", scanner.position() + mark, text.size());
        return std::nullopt;
    }
    std::unordered_set<std::string> seen;
    std::for_each(document.members_.rbegin(), document.members_.rend(), [&seen](Member& member) {
        if (!seen.insert(identityOf(member)).second) {
            member.name.clear();  // which marks it: a later one counts
        }
    });
    std::erase_if(document.members_, [](const Member& member) { return member.name.empty(); });
    return document;
}

bool DefaultsStoreDocument::set(std::string_view key, std::string_view json) {
    const auto member = std::ranges::find_if(members_, [key](const Member& each) { return each.key == key; });
    if (member == members_.end()) {
        members_.push_back({.key = std::string(key), .name = defaultsStoreJSON(key), .json = std::string(json)});
    } else if (member->json != json) {
        member->json = json;
    } else {
        return false;
    }
    return true;
}

bool DefaultsStoreDocument::setAll(const DefaultsStoreDocument& other) {
    std::unordered_map<std::string, std::size_t> places;
    for (const Member& member : members_) {
        places.emplace(identityOf(member), places.size());
    }
    bool changed = false;
    for (const Member& member : other.members_) {
        const auto [place, isNew] = places.try_emplace(identityOf(member), members_.size());
        if (isNew) {
            members_.push_back(member);
        } else if (members_[place->second].json != member.json) {
            members_[place->second].json = member.json;
        } else {
            continue;
        }
        changed = true;
    }
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
