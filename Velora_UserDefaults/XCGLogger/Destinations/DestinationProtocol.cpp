#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>

namespace velora {

DestinationProtocol::~DestinationProtocol() = default;

}  // namespace velora
