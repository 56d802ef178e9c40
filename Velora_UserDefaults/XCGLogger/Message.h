#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <iosfwd>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/TextWriter.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>

namespace velora {

/// Whether a type is a `std::optional`. Internal.
template <typename Type>
inline constexpr bool isOptional = false;
template <typename Value>
inline constexpr bool isOptional<std::optional<Value>> = true;

/// Text of some type.
template <typename Value>
concept TextLike =
    std::convertible_to<const Value&, std::string_view> || std::convertible_to<const Value&, std::string>;

/// A value that streams print.
template <typename Value>
concept Streamable = requires(std::ostream& stream, const Value& value) {
    stream << value;
};

/// A pointer to a function.
template <typename Type>
concept FunctionPointer = std::is_pointer_v<Type> && std::is_function_v<std::remove_pointer_t<Type>>;

/// A function, or a closure that turns into one. Streams and {fmt} would show it as a boolean.
template <typename Value>
concept FunctionLike = requires(const Value& value) {
    { +value } -> FunctionPointer;
};

/// A value whose text a log line can show: text, anything that {fmt} formats (numbers, collections,
/// types with a formatter) and anything with an `operator<<`.
template <typename Value>
concept Renderable = !std::is_void_v<Value> && !FunctionLike<Value> &&
                     (TextLike<Value> || fmt::is_formattable<Value>::value || Streamable<Value>);

/// What `Loggable` asks. Internal.
template <typename Value>
inline constexpr bool isLoggable = Renderable<Value> || std::same_as<Value, std::nullopt_t>;
template <typename Value>
inline constexpr bool isLoggable<std::optional<Value>> = isLoggable<Value>;

/// As `Renderable`, or an optional of one: an empty optional logs nothing.
template <typename Value>
concept Loggable = isLoggable<Value>;

/// A closure that takes nothing and returns a message.
template <typename Closure>
concept MessageMaker = std::invocable<Closure&> && Loggable<std::remove_cvref_t<std::invoke_result_t<Closure&>>>;

/// Appends what `write` writes to a stream over `out`.
VELORA_EXPORT void appendStreamed(std::string& out, void (*write)(std::ostream& stream, const void* value),
                                  const void* value);

/// Appends the text of `format` with its arguments filled in.
VELORA_EXPORT void appendFormatted(std::string& out, fmt::string_view format, fmt::format_args arguments);

/// Appends the default text of `value` to `out`; returns false, appending nothing, if it is an empty
/// optional. Text is taken as it is, booleans are "true" and "false", a null text is "(null)". A type
/// with an `operator<<` of its own is shown by that, even if it is a collection too.
template <Loggable Value>
bool render(const Value& value, std::string& out) {
    if constexpr (std::same_as<Value, std::nullopt_t>) {
        return false;
    } else if constexpr (isOptional<Value>) {
        return value.has_value() && render(*value, out);
    } else if constexpr (std::convertible_to<const Value&, const char*>) {
        const char* const text = value;
        out += text == nullptr ? "(null)" : text;
        return true;
    } else if constexpr (std::convertible_to<const Value&, std::string_view>) {
        out += static_cast<std::string_view>(value);
        return true;
    } else if constexpr (std::convertible_to<const Value&, std::string>) {
        out += static_cast<std::string>(value);
        return true;
    } else if constexpr (Streamable<Value> &&
                         (!fmt::is_formattable<Value>::value || fmt::is_range<Value, char>::value)) {
        appendStreamed(
            out, [](std::ostream& stream, const void* object) { stream << *static_cast<const Value*>(object); },
            &value);
        return true;
    } else {
        appendFormatted(out, "{}", fmt::make_format_args(value));
        return true;
    }
}

class MessageClosure;
class MessageReference;

/// What a `MessageReference` can refer to.
template <typename Message>
concept MessageArgument = !std::same_as<std::remove_cvref_t<Message>, MessageReference> &&
                          (MessageMaker<std::remove_reference_t<Message>> || Loggable<std::remove_cvref_t<Message>>);

/// A closure that a `MessageClosure` can keep.
template <typename Closure>
concept KeepableMessageMaker =
    !std::same_as<std::remove_cvref_t<Closure>, MessageClosure> && MessageMaker<std::decay_t<Closure>>;

/// Refers to a log call's message without making its text: a value, or a closure that makes one.
///
/// Rendered at most once, and only if some destination accepts the call. Lives no longer than the
/// call; whatever it refers to must outlive it.
class MessageReference {
public:
    /// Refers to `message`.
    template <MessageArgument Message>
    MessageReference(Message&& message)  // NOLINT(bugprone-forwarding-reference-overload): the concept excludes copies
        : message_(addressOf(message)), render_(renderTyped<std::remove_reference_t<Message>>) {}

    /// A message whose text `append` appends to the `std::string&` it is given.
    template <typename Append>
    static MessageReference appendedBy(Append& append) noexcept {
        return {&append, [](void* object, std::string& out) {
                    (*static_cast<Append*>(object))(out);
                    return true;
                }};
    }

    /// Appends the message's text to `out`; returns false, appending nothing, if there is no message.
    bool render(std::string& out) const { return render_(message_, out); }

private:
    MessageReference(void* message, bool (*render)(void* message, std::string& out)) noexcept
        : message_(message), render_(render) {}

    template <typename Message>
    static bool renderTyped(void* message, std::string& out) {
        Message& typed = *typedAddress<Message>(message);
        if constexpr (std::same_as<std::remove_cv_t<Message>, MessageClosure>) {
            return typed.render(out);
        } else if constexpr (MessageMaker<Message>) {
            return velora::render(std::invoke(typed), out);
        } else {
            return velora::render(typed, out);
        }
    }

    // A closure may be a plain function, whose address POSIX lets a pointer to an object hold.
    template <typename Message>
    static void* addressOf(Message& message) noexcept {
        if constexpr (std::is_function_v<Message>) {
            return reinterpret_cast<void*>(&message);
        } else {
            return const_cast<void*>(static_cast<const void*>(std::addressof(message)));
        }
    }
    template <typename Message>
    static Message* typedAddress(void* address) noexcept {
        if constexpr (std::is_function_v<Message>) {
            return reinterpret_cast<Message*>(address);
        } else {
            return static_cast<Message*>(address);
        }
    }

    void* message_;
    bool (*render_)(void* message, std::string& out);
};

/// A closure that makes a message, kept: what a logger logs for a call without a message.
class MessageClosure {
public:
    /// Keeps a copy of `closure`, which takes nothing and returns a message or an optional one.
    template <KeepableMessageMaker Closure>
    MessageClosure(Closure closure)  // NOLINT(google-explicit-constructor): closures convert
        : render_([closure = std::move(closure)](std::string& out) mutable {
              return MessageReference(closure).render(out);
          }) {}

    /// The message's text; nothing if the closure yields none.
    std::optional<std::string> operator()() const {
        std::string text;
        return render(text) ? std::optional(std::move(text)) : std::nullopt;
    }

    /// Appends the message's text to `out`; returns false if the closure yields none.
    bool render(std::string& out) const { return render_(out); }

private:
    std::function<bool(std::string& out)> render_;
};

/// Where a format's replacement fields are, found by the compiler. Internal.
///
/// Known only of a format in which, as in most, every field is "{}", nothing is escaped and the fields are few
/// and near its beginning: then nothing is left to be parsed when it is used. Fits a register.
class ReplacementFields {
public:
    static constexpr std::size_t maximumCount = 5;

    consteval explicit ReplacementFields(std::string_view format) {
        std::size_t count = 0;
        for (std::size_t at = format.find_first_of("{}"); at != std::string_view::npos;
             at = format.find_first_of("{}", at + 2)) {
            if (format.substr(at, 2) != "{}" || count == maximumCount || at > positionMask) {
                bits_ = 0;
                return;
            }
            bits_ |= std::uint64_t{at} << (countBits + positionBits * count++);
        }
        bits_ |= count;
    }

    /// The number of fields; 0 if there is none, or nothing is known.
    constexpr std::size_t count() const noexcept { return bits_ & countMask; }
    /// The position of a field's opening brace.
    constexpr std::size_t position(std::size_t index) const noexcept {
        return (bits_ >> (countBits + positionBits * index)) & positionMask;
    }

private:
    static constexpr std::size_t countBits = 4;
    static constexpr std::uint64_t countMask = 15;
    static constexpr std::size_t positionBits = 12;
    static constexpr std::uint64_t positionMask = 4'095;

    std::uint64_t bits_ = 0;
};

/// An argument whose text for "{}" can be written without {fmt}: text, a whole number, a character, a boolean.
template <typename Argument, typename Value = std::remove_cv_t<Argument>>
inline constexpr bool isPlainArgument =
    std::same_as<Value, bool> || std::same_as<Value, char> || std::same_as<Value, int> ||
    std::same_as<Value, unsigned> || std::same_as<Value, short> || std::same_as<Value, unsigned short> ||
    std::same_as<Value, long> || std::same_as<Value, unsigned long> || std::same_as<Value, long long> ||
    std::same_as<Value, unsigned long long> || std::same_as<Value, std::string> ||
    std::same_as<Value, std::string_view> || std::same_as<std::decay_t<Value>, const char*> ||
    std::same_as<std::decay_t<Value>, char*>;

/// A plain argument as one of the three things that a `TextWriter` appends. A null text is "(null)".
template <typename Argument>
auto plainValue(const Argument& argument) noexcept {
    if constexpr (std::same_as<Argument, bool>) {
        return argument ? std::string_view("true") : std::string_view("false");
    } else if constexpr (std::same_as<Argument, char>) {
        return argument;
    } else if constexpr (std::signed_integral<Argument>) {
        return static_cast<std::int64_t>(argument);
    } else if constexpr (std::unsigned_integral<Argument>) {
        return static_cast<std::uint64_t>(argument);
    } else if constexpr (std::convertible_to<const Argument&, const char*>) {
        const char* const text = argument;
        return text == nullptr ? std::string_view("(null)") : std::string_view(text);
    } else {
        return std::string_view(argument);
    }
}

/// The most bytes that a value takes as text. Internal.
constexpr std::size_t maximumSize(std::string_view text) noexcept {
    return text.size();
}
template <std::integral Number>
constexpr std::size_t maximumSize(Number /*number*/) noexcept {
    return TextWriter::maximumNumberSize;
}

/// Appends `format` with each of its fields, which are all known, replaced by the value of the same number.
template <typename... Values>
void appendFilledInValues(std::string& out, fmt::string_view format, ReplacementFields fields,
                          const Values&... values) {
    constexpr std::size_t fieldSize = 2;
    const std::size_t begin = out.size();
    out.resize(begin + format.size() + (maximumSize(values) + ...));
    TextWriter writer(out.data() + begin);
    std::size_t done = 0;
    std::size_t index = 0;
    const auto fillIn = [&](const auto& value) {
        const std::size_t position = fields.position(index++);
        writer.append(std::string_view(format.data() + done, position - done));
        writer.append(value);
        done = position + fieldSize;
    };
    (fillIn(values), ...);
    writer.append(std::string_view(format.data() + done, format.size() - done));
    out.resize(static_cast<std::size_t>(writer.position() - out.data()));
}

/// The same for plain arguments: what `appendFormatted` appends, without parsing anything.
template <typename... Arguments>
void appendFilledIn(std::string& out, fmt::string_view format, ReplacementFields fields,
                    const Arguments&... arguments) {
    appendFilledInValues(out, format, fields, plainValue(arguments)...);
}

/// What a format can be written as.
template <typename Text>
concept ConvertsToText = std::convertible_to<const Text&, std::string_view>;

/// A format text, checked against its arguments by the compiler, with the place of the call.
template <typename... Arguments>
struct LocatedFormat {
    /// `text` is checked against the arguments; the place is the caller's.
    template <ConvertsToText Text>
    consteval LocatedFormat(const Text& text,  // NOLINT(google-explicit-constructor): written as a plain text
                            SourceLocation place = SourceLocation::current())
        : format(text), fields(std::string_view(text)), location(place) {}

    /// The format, what is known of its fields, and the place.
    fmt::format_string<Arguments...> format;
    ReplacementFields fields;
    SourceLocation location;
};

}  // namespace velora
