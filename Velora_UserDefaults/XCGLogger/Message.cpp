#include <array>
#include <charconv>
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

namespace {

/// Appends an argument as "{}" shows it.
class ArgumentAppender {
public:
    ArgumentAppender(std::string& out, const fmt::format_args::format_arg& argument)
        : out_(out), argument_(argument) {}

    void operator()(int value) const { appendNumber(value); }
    void operator()(unsigned value) const { appendNumber(value); }
    void operator()(long long value) const { appendNumber(value); }
    void operator()(unsigned long long value) const { appendNumber(value); }
    void operator()(bool value) const { out_ += value ? "true" : "false"; }
    void operator()(char value) const { out_ += value; }
    void operator()(const char* value) const { out_ += value == nullptr ? "(null)" : value; }
    void operator()(fmt::string_view value) const { out_.append(value.data(), value.size()); }
    template <typename Other>
    void operator()(const Other& /*value*/) const {
        fmt::vformat_to(std::back_inserter(out_), "{}", fmt::format_args(&argument_, 1));
    }

private:
    template <typename Number>
    void appendNumber(Number number) const {
        std::array<char, 24> digits;
        const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
        out_.append(digits.data(), end);
    }

    std::string& out_;
    const fmt::format_args::format_arg& argument_;
};

}  // namespace

void appendFormatted(std::string& out, fmt::string_view format, ReplacementFields fields, fmt::format_args arguments) {
    if (fields.count() == 0) {
        appendFormatted(out, format, arguments);
        return;
    }
    constexpr std::size_t fieldSize = 2;
    std::size_t done = 0;
    for (std::size_t index = 0; index < fields.count(); ++index) {
        const std::size_t position = fields.position(index);
        out.append(format.data() + done, position - done);
        const auto argument = arguments.get(static_cast<int>(index));
        fmt::visit_format_arg(ArgumentAppender(out, argument), argument);
        done = position + fieldSize;
    }
    out.append(format.data() + done, format.size() - done);
}

}  // namespace velora
