#include "TerminalText.h"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>

#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {

namespace {

/// The size of the character that `text` begins with; 0 if that is no UTF-8.
std::size_t sizeOfCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t size = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    return isValidUTF8(text.substr(0, size)) && text.size() >= size ? size : 0;
}

/// The number of the control character that `character` is; -1 if it is none.
int controlCode(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    if (character.size() == 1) {
        return first < 0x20 || first == 0x7f ? first : -1;
    }
    const auto second = static_cast<unsigned char>(character[1]);
    return first == 0xc2 && second < 0xa0 ? second : -1;
}

std::string escaped(std::string_view character) {
    const int code = controlCode(character);
    if (code < 0) {
        return character == "\\" ? "\\\\" : std::string(character);
    }
    return code == '\n'   ? "\\n"
           : code == '\t' ? "\\t"
           : code < 0x80  ? fmt::format("\\x{:02x}", code)
                          : fmt::format("\\u{:04x}", code);
}

/// `text` with each character as `shown` writes it, and each byte that is part of none as `shownByte` does.
template <typename Shown, typename ShownByte>
std::string rewritten(std::string_view text, Shown shown, ShownByte shownByte) {
    std::string line;
    while (!text.empty()) {
        const std::size_t size = sizeOfCharacter(text);
        line += size == 0 ? shownByte(static_cast<unsigned char>(text.front())) : shown(text.substr(0, size));
        text.remove_prefix(std::max<std::size_t>(1, size));
    }
    return line;
}

}  // namespace

std::string printable(std::string_view text) {
    return rewritten(text, escaped, [](unsigned char byte) { return fmt::format("\\x{:02x}", byte); });
}

std::string printableJSON(std::string_view json) {
    const auto shown = [](std::string_view character) {
        const int code = controlCode(character);
        // None of these stands within a string as it is.
        const bool isSpace = code == '\n' || code == '\r' || code == '\t';
        return isSpace ? " " : code < 0 ? std::string(character) : fmt::format("\\u{:04x}", code);
    };
    return rewritten(json, shown, [](unsigned char) { return std::string("\xef\xbf\xbd"); });
}

}  // namespace velora
