#include <fmt/format.h>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/RGBText.h>

namespace velora {

std::string rgbText(int red, int green, int blue) {
    return fmt::format("(r: {}, g: {}, b: {}) #{:02X}{:02X}{:02X}", red, green, blue, static_cast<unsigned>(red),
                       static_cast<unsigned>(green), static_cast<unsigned>(blue));
}

}  // namespace velora
