#pragma once

#include <gtest/gtest.h>
#include <string>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora::test {

/// What a formatter makes of a line of `level`.
inline std::string formatted(LogFormatterProtocol& formatter, Level level, std::string line = "hi") {
    LogDetails details{.level = level, .message = "the record's"};
    const std::string& returned = formatter.format(details, line);
    EXPECT_EQ(&returned, &line);
    EXPECT_EQ(details.level, level);
    EXPECT_EQ(details.message, "the record's");
    return line;
}

/// A formatter that a host derives from another and names `Subclass`.
template <typename Formatter>
class DerivedFrom {
public:
    class Subclass : public Formatter {
    public:
        using Formatter::Formatter;
    };
};

/// Expects a formatter to describe itself by the name of its own class.
template <typename Formatter>
void expectDescribesItselfByItsClass(const std::string& name) {
    EXPECT_EQ(make<Formatter>()->debugDescription(), name);
    EXPECT_EQ(make<typename DerivedFrom<Formatter>::Subclass>()->debugDescription(), "Subclass");
}

}  // namespace velora::test
