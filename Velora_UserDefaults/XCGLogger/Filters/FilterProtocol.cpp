#include <Velora_UserDefaults/XCGLogger/Filters/FilterProtocol.h>

namespace velora {

FilterProtocol::~FilterProtocol() = default;

}  // namespace velora
