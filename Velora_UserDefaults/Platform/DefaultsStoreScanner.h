#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velora {

/// Walks over JSON text (RFC 8259) and gives the exact text of its pieces, checking that it is well formed. Internal.
///
/// A store that rewrites its file for one key has to keep all other values digit for digit, which a parser that
/// turns numbers into machine numbers does not. Nothing here recurses or allocates for the length of the text;
/// a value may be nested `maximumDepth` deep. A step that returns false or nothing leaves the position anywhere.
class DefaultsStoreScanner {
public:
    static constexpr std::size_t maximumDepth = 512;

    explicit DefaultsStoreScanner(std::string_view json) : json_(json) {}

    bool atEnd() const { return position_ == json_.size(); }
    /// How many bytes were walked over.
    std::size_t position() const { return position_; }

    void skipBlanks();
    /// Walks over `character` if it is the next one.
    bool skipCharacter(char character);
    /// The string that begins here, with its quotes.
    std::optional<std::string_view> string();
    /// The value of any type that begins here.
    std::optional<std::string_view> value();

private:
    char next() const { return atEnd() ? '\0' : json_[position_]; }
    bool skipString();
    bool skipEscape();
    bool skipDigits();
    bool skipNumber();
    bool skipWord(std::string_view word);
    bool skipScalar();
    bool skipMemberName();
    bool skipValue();

    std::string_view json_;
    std::size_t position_ = 0;
};

}  // namespace velora
