#include <ostream>

#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>

namespace velora {

std::ostream& operator<<(std::ostream& stream, const SourceText& text) {
    return stream << text.view();
}

}  // namespace velora
