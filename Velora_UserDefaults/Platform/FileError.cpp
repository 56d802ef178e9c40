#include <fmt/format.h>
#include <system_error>

#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

FileError FileError::make(int code, std::string_view path, std::string_view failure, std::string_view kind) {
    return {
        .code = code,
        .description = fmt::format("The {} “{}” {}: {}", kind, path, failure, std::generic_category().message(code))};
}

}  // namespace velora
