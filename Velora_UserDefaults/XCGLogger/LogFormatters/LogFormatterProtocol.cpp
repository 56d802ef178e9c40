#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

LogFormatterProtocol::~LogFormatterProtocol() = default;

}  // namespace velora
