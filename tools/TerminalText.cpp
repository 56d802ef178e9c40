#include "TerminalText.h"

#include <fmt/format.h>

namespace velora {

std::string printable(std::string_view text) {
    std::string line;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\t') {
            line += "\\t";
        } else if (code < 0x20 || code == 0x7f) {
            line += fmt::format("\\x{:02x}", code);
        } else {
            line += character;
        }
    }
    return line;
}

}  // namespace velora
