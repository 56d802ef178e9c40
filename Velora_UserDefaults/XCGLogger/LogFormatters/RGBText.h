#pragma once

#include <string>

/// How colours that are made of red, green and blue describe themselves. For the library's own use;
/// not installed.
namespace velora {

/// The three numbers, in decimal and then as `%02X` prints an int: two digits for 0 to 255, more for
/// larger numbers, the two's complement for negative ones. "(r: 255, g: 0, b: 10) #FF000A"
std::string rgbText(int red, int green, int blue);

}  // namespace velora
