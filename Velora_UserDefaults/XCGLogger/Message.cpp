#include <sstream>

#include <Velora_UserDefaults/XCGLogger/Message.h>

namespace velora {

void appendStreamed(std::string& out, void (*write)(std::ostream& stream, const void* value), const void* value) {
    std::ostringstream stream;
    write(stream, value);
    out += stream.view();
}

void appendFormatted(std::string& out, fmt::string_view format, fmt::format_args arguments) {
    fmt::vformat_to(std::back_inserter(out), format, arguments);
}

}  // namespace velora
