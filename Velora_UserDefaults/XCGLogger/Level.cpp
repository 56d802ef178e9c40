#include <fmt/format.h>
#include <ostream>

#include <Velora_UserDefaults/XCGLogger/Level.h>

namespace velora {

std::string_view description(Level level) noexcept {
    static constexpr std::array<std::string_view, Levels::allCases.size()> words = {
        "Verbose", "Debug", "Info", "Notice", "Warning", "Error", "Severe", "Alert", "Emergency", "None"};
    return words.at(static_cast<std::size_t>(level));
}

std::ostream& operator<<(std::ostream& stream, Level level) {
    return stream << description(level);
}

}  // namespace velora

fmt::format_context::iterator fmt::formatter<velora::Level>::format(velora::Level level,
                                                                    fmt::format_context& context) const {
    return word_.format(velora::description(level), context);
}
