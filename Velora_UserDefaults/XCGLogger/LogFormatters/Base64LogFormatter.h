#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

/// Replaces each line by its Base64 encoding (RFC 4648, section 4: with padding, without line breaks),
/// which keeps it on one line of plain ASCII whatever it holds.
///
///     destination->setFormatters({{make<Base64LogFormatter>()}});
///
/// It has no state: safe to use from several threads at once.
class VELORA_EXPORT Base64LogFormatter : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    /// `make<Base64LogFormatter>()`
    explicit Base64LogFormatter(Making key);
    ~Base64LogFormatter() override;

    /// Encodes the bytes of `message`. A message that is no valid UTF-8 is left as it is.
    const std::string& format(LogDetails& logDetails, std::string& message) override;

    /// The object's own class name.
    std::string debugDescription() const override;
};

}  // namespace velora
