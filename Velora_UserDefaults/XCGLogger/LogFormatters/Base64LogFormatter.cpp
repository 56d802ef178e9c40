#include <Velora_UserDefaults/Platform/Base64.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>

namespace velora {

Base64LogFormatter::Base64LogFormatter(Making key) : MadeInTwoSteps(key) {}

Base64LogFormatter::~Base64LogFormatter() = default;

const std::string& Base64LogFormatter::format(LogDetails& /*logDetails*/, std::string& message) {
    if (isValidUTF8(message)) {
        message = base64Encoded(message);
    }
    return message;
}

std::string Base64LogFormatter::debugDescription() const {
    return dynamicTypeName(*this);
}

}  // namespace velora
