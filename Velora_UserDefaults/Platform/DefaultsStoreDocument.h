#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velora {

/// The members of the store's JSON object, each with its exact text. Internal; a plain value.
class DefaultsStoreDocument {
public:
    /// The size above which a file is taken for something else than a store.
    static constexpr std::size_t maximumSize = std::size_t{16} << 20U;

    struct Member {
        std::optional<std::string>
            key;           ///< nothing if the name is well-formed JSON but no text (half a surrogate pair)
        std::string name;  ///< the key as it stands in the file, with its quotes
        std::string json;  ///< the value as it stands in the file
    };

    /// The document that `text` is: one JSON object, perhaps after a byte order mark. Nothing if it is not one; then
    /// `fault` says why.
    static std::optional<DefaultsStoreDocument> parse(std::string_view text, std::string& fault);

    /// All members in their order. Of several with one key the last one counts.
    const std::vector<Member>& members() const { return members_; }

    /// Gives `key` the value `json`, at the place of the member that counted or else at the end. Returns whether that
    /// changed anything.
    bool set(std::string_view key, std::string_view json);
    /// Sets all members of `other`, also those whose key is no text. Takes time in proportion to the members of both,
    /// where calls of `set` take their product.
    bool setAll(const DefaultsStoreDocument& other);
    /// Drops all members with `key`. Returns whether there were any.
    bool remove(std::string_view key);

    /// The text of the file: one member a line.
    std::string text() const;

private:
    std::vector<Member> members_;
};

}  // namespace velora
