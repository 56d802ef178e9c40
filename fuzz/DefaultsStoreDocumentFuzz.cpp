// The text of a defaults file. What is well formed is told by another parser of JSON; what is written back must say
// the same, and setting and removing must touch one key alone. Two documents may be parted by the byte 0x1E.

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>

namespace velora::test {
namespace {

using Member = DefaultsStoreDocument::Member;

struct Reference {
    /// Whether the other parser can tell. It takes a NUL for the end, has no text for half of a surrogate pair and
    /// no number for what is beyond a double.
    bool knows = true;
    std::optional<nlohmann::json> object;
};

Reference referenceOf(std::string_view text) {
    if (text.find('\0') != std::string_view::npos) {
        return {.knows = false, .object = std::nullopt};
    }
    try {
        auto parsed = nlohmann::json::parse(text);
        return {.knows = true, .object = parsed.is_object() ? std::optional(std::move(parsed)) : std::nullopt};
    } catch (const nlohmann::json::out_of_range&) {
        return {.knows = false, .object = std::nullopt};
    } catch (const nlohmann::json::parse_error& error) {
        return {.knows = std::string_view(error.what()).find("surrogate") == std::string_view::npos,
                .object = std::nullopt};
    }
}

/// How deep the brackets of a well-formed text are nested.
std::size_t depthOf(std::string_view json) {
    std::size_t depth = 0;
    std::size_t deepest = 0;
    bool inString = false;
    for (std::size_t at = 0; at < json.size(); ++at) {
        if (inString) {
            at += json[at] == '\\' ? 1 : 0;
            inString = json[at] != '"';
        } else if (json[at] == '{' || json[at] == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (json[at] == '}' || json[at] == ']') {
            --depth;
        } else {
            inString = json[at] == '"';
        }
    }
    return deepest;
}

bool areEqual(const std::vector<Member>& left, const std::vector<Member>& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](const Member& one, const Member& other) {
        return one.key == other.key && one.name == other.name && one.json == other.json;
    });
}

/// The document that `text` is, parsed without a fault.
DefaultsStoreDocument reparsed(const std::string& text) {
    std::string fault;
    auto document = DefaultsStoreDocument::parse(text, fault);
    require(document.has_value(), "what a document writes is a document: " + fault);
    return *std::move(document);
}

void checkValues(const DefaultsStoreDocument& document, const nlohmann::json& reference) {
    nlohmann::json values = nlohmann::json::object();
    for (const Member& member : document.members()) {
        require(member.key.has_value(), "a key that another parser can read is text");
        values[*member.key] = nlohmann::json::parse(member.json);
    }
    require(values == reference, "the members are those of the object, the last of each key");
}

/// The members without those of `key`.
std::vector<Member> others(const DefaultsStoreDocument& document, const std::string& key) {
    std::vector<Member> members;
    std::copy_if(document.members().begin(), document.members().end(), std::back_inserter(members),
                 [&key](const Member& member) { return member.key != key; });
    return members;
}

void checkChanges(const DefaultsStoreDocument& document, const std::string& key) {
    DefaultsStoreDocument changed = document;
    changed.set(key, "[\"set\"]");
    const DefaultsStoreDocument read = reparsed(changed.text());
    require(areEqual(others(read, key), others(document, key)), "setting a key leaves the others");
    require(read.members().size() == others(read, key).size() + 1, "a key that was set is there once");
    require(!changed.set(key, "[\"set\"]"), "setting what is there changes nothing");
    require(changed.remove(key), "a key that was set can be removed");
    require(areEqual(changed.members(), others(document, key)), "removing a key leaves the others");
    require(!changed.remove(key), "a key that was removed is gone");
}

void checkMerge(const DefaultsStoreDocument& document, const DefaultsStoreDocument& added) {
    DefaultsStoreDocument atOnce = document;
    DefaultsStoreDocument oneByOne = document;
    bool changed = false;
    for (const Member& member : added.members()) {
        if (!member.key) {
            return;
        }
        changed = oneByOne.set(*member.key, member.json) || changed;
    }
    require(atOnce.setAll(added) == changed, "setting all at once changes as much as one by one");
    // Names may be spelt in several ways; the text of a new one is the imported file's.
    const auto& left = atOnce.members();
    const auto& right = oneByOne.members();
    require(std::equal(
                left.begin(), left.end(), right.begin(), right.end(),
                [](const Member& one, const Member& other) { return one.key == other.key && one.json == other.json; }),
            "setting all at once is setting one by one");
}

void check(std::string_view text, std::string_view added) {
    std::string fault;
    const auto document = DefaultsStoreDocument::parse(text, fault);
    require(document.has_value() == fault.empty(), "there is a fault or a document");
    const Reference reference = referenceOf(text);
    if (reference.knows) {
        const bool isAcceptable = reference.object && depthOf(text) <= DefaultsStoreDocument::maximumDepth + 1;
        require(document.has_value() == isAcceptable, "well-formed text is what other parsers take for such");
    }
    if (!document) {
        return;
    }
    if (reference.object) {
        checkValues(*document, *reference.object);
    }
    const DefaultsStoreDocument again = reparsed(document->text());
    require(areEqual(again.members(), document->members()), "a document comes back from its text");
    requireEqual(again.text(), document->text(), "the text of a document is always the same");
    checkChanges(*document, "new");
    if (!document->members().empty() && document->members().front().key) {
        checkChanges(*document, *document->members().front().key);
    }
    if (const auto other = DefaultsStoreDocument::parse(added, fault)) {
        checkMerge(*document, *other);
    }
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string_view text = input.until('\x1E');
    velora::test::check(text, input.rest());
    return 0;
}
