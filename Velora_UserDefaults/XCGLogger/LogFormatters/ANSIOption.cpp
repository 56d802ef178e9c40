#include <array>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIOption.h>

namespace velora {

namespace {

struct OptionTexts {
    std::string_view code;
    std::string_view description;
};

// In the order of the cases.
constexpr std::array<OptionTexts, 7> optionTexts = {{
    {"1", "Bold"},
    {"2", "Faint"},
    {"3", "Italic"},
    {"4", "Underline"},
    {"5", "Blink"},
    {"6", "Blink Fast"},
    {"9", "Strikethrough"},
}};

}  // namespace

std::string_view code(ANSIOption option) noexcept {
    return optionTexts.at(static_cast<std::size_t>(option)).code;
}

std::string_view description(ANSIOption option) noexcept {
    return optionTexts.at(static_cast<std::size_t>(option)).description;
}

}  // namespace velora
