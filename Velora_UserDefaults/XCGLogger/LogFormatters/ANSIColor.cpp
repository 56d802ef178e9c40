#include <algorithm>
#include <array>
#include <fmt/format.h>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColor.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/RGBText.h>

namespace velora {

namespace {

struct PlainColor {
    std::string_view foregroundCode;
    std::string_view backgroundCode;
    std::string_view description;
};

// In the order of the cases.
constexpr std::array<PlainColor, 19> plainColors = {{
    {"30", "40", "Black"},          {"31", "41", "Red"},           {"32", "42", "Green"},
    {"33", "43", "Yellow"},         {"34", "44", "Blue"},          {"35", "45", "Magenta"},
    {"36", "46", "Cyan"},           {"37", "47", "Light Grey"},    {"37", "47", "Light Grey"},
    {"90", "100", "Dark Grey"},     {"90", "100", "Dark Grey"},    {"91", "101", "Light Red"},
    {"92", "102", "Light Green"},   {"93", "103", "Light Yellow"}, {"94", "104", "Light Blue"},
    {"95", "105", "Light Magenta"}, {"96", "106", "Light Cyan"},   {"97", "107", "White"},
    {"39", "49", "Default"},
}};

int clamped(int number) {
    return std::clamp(number, 0, 255);
}

}  // namespace

std::string ANSIColor::numberedCode(std::string_view command) const {
    return case_ == Case::rgb
               ? fmt::format("{};2;{};{};{}", command, clamped(first_), clamped(second_), clamped(third_))
               : fmt::format("{};5;{}", command, clamped(first_));
}

std::string ANSIColor::foregroundCode() const {
    return case_ <= Case::default_ ? std::string(plainColors.at(static_cast<std::size_t>(case_)).foregroundCode)
                                   : numberedCode("38");
}

std::string ANSIColor::backgroundCode() const {
    return case_ <= Case::default_ ? std::string(plainColors.at(static_cast<std::size_t>(case_)).backgroundCode)
                                   : numberedCode("48");
}

std::string ANSIColor::description() const {
    switch (case_) {
        case Case::rgb:
            return rgbText(first_, second_, third_);
        case Case::colorIndex:
            return fmt::format("ANSI color index: {}", first_);
        default:
            return std::string(plainColors.at(static_cast<std::size_t>(case_)).description);
    }
}

}  // namespace velora
