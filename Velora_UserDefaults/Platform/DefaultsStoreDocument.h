#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velora {

/// The members of the store's JSON object, each with its exact text. Internal; a plain value.
///
/// A store that rewrites its file for one key has to keep all other values digit for digit. A library's parser turns
/// numbers into machine numbers, or refuses what they cannot hold; this one looks at the text alone.
class DefaultsStoreDocument {
public:
    /// The size above which a file is taken for something else than a store.
    static constexpr std::size_t maximumSize = std::size_t{16} << 20U;
    /// How deep a value may be nested.
    static constexpr std::size_t maximumDepth = 512;

    struct Member {
        /// Nothing if the name is well-formed JSON but no text (half a surrogate pair).
        std::optional<std::string> key;
        std::string name;  ///< the key as it stands in the file, with its quotes
        std::string json;  ///< the value as it stands in the file
    };

    /// The document that `text` is: one JSON object (RFC 8259), perhaps after a byte order mark. Nothing if it is not
    /// one; then `fault` says why. Neither recurses nor allocates for the length of a value.
    static std::optional<DefaultsStoreDocument> parse(std::string_view text, std::string& fault);

    /// All members in their order; of several with one key the last one.
    const std::vector<Member>& members() const { return members_; }

    /// Gives `key` the value `json`, at its place or else at the end. Returns whether that changed anything.
    bool set(std::string_view key, std::string_view json);
    /// Sets all members of `other`, also those whose key is no text. Takes time in proportion to the members of both,
    /// where calls of `set` take their product.
    bool setAll(const DefaultsStoreDocument& other);
    /// Drops the member with `key`. Returns whether there was one.
    bool remove(std::string_view key);

    /// The text of the file: one member a line.
    std::string text() const;

private:
    std::vector<Member> members_;
};

}  // namespace velora
