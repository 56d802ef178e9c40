#pragma once

#include <cstdint>
#include <iosfwd>
#include <source_location>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// The place of a log call in the source: function, file and line.
///
/// Every log call captures its own by a default argument; a host that forwards calls passes the one
/// it captured. It refers to its texts and lives no longer than the call it is passed to.
struct SourceLocation {
    /// The calling function's name as the compiler gives it: without parameters; of a template, g++ adds
    /// the arguments ("parse<int>").
    std::string_view functionName;
    /// The path of the calling source file, as the compiler was given it.
    std::string_view fileName;
    std::int64_t lineNumber = 0;
    /// Whether both texts live as long as the process, so that a record may refer to them too.
    bool isStatic = false;

    /// The place of the call itself, when used as a default argument.
    static constexpr SourceLocation current(const char* functionName = __builtin_FUNCTION(),
                                            const char* fileName = __builtin_FILE(),
                                            std::int64_t lineNumber = __builtin_LINE()) noexcept {
        return {functionName, fileName, lineNumber, true};
    }

    /// A place of which the caller knows whether its texts live as long as the process.
    static constexpr SourceLocation of(std::string_view function, std::string_view file, std::int64_t line,
                                       bool textsAreStatic) noexcept {
        return {function, file, line, textsAreStatic};
    }

    constexpr SourceLocation() = default;
    /// A place told by the caller; a record copies the texts.
    constexpr SourceLocation(std::string_view function, std::string_view file, std::int64_t line) noexcept
        : functionName(function), fileName(file), lineNumber(line) {}
#ifdef __cpp_lib_source_location
    /// The standard's own kind of place, where the compiler has it; its function name has the parameters.
    constexpr SourceLocation(const std::source_location& place) noexcept  // NOLINT(google-explicit-constructor)
        : SourceLocation(place.function_name(), place.file_name(), static_cast<std::int64_t>(place.line()), true) {}
#endif

private:
    constexpr SourceLocation(std::string_view function, std::string_view file, std::int64_t line,
                             bool textsAreStatic) noexcept
        : functionName(function), fileName(file), lineNumber(line), isStatic(textsAreStatic) {}
};

/// A text of a record that names a place in the source: copied from what it is given, or referring to
/// a text that lives as long as the process, which costs no copy. A value: copies are independent.
class SourceText {
public:
    SourceText() = default;
    /// A copy of `text`.
    SourceText(const char* text) : owned_(text) {}             // NOLINT(google-explicit-constructor)
    SourceText(std::string_view text) : owned_(text) {}        // NOLINT(google-explicit-constructor)
    SourceText(std::string text) : owned_(std::move(text)) {}  // NOLINT(google-explicit-constructor)
    /// An independent copy: of the reference, or of the text.
    SourceText(const SourceText&) = default;
    /// Takes the text over.
    SourceText(SourceText&&) noexcept = default;
    /// The same; memory at hand is used again.
    SourceText& operator=(const SourceText& other) {
        referred_ = other.referred_;
        if (!owned_.empty() || !other.owned_.empty()) {
            owned_ = other.owned_;
        }
        return *this;
    }
    /// Takes the text over.
    SourceText& operator=(SourceText&&) noexcept = default;
    ~SourceText() = default;

    /// Refers to `text`, which must live as long as the process.
    static SourceText referringTo(std::string_view text) noexcept {
        SourceText result;
        result.referred_ = text;
        return result;
    }

    /// Takes `text` over: refers to it if it `isStatic`, else copies it into the memory at hand.
    void assign(std::string_view text, bool isStatic) {
        if (isStatic) {
            referred_ = text;
            if (!owned_.empty()) {
                owned_.clear();
            }
        } else {
            referred_ = {};
            owned_.assign(text);
        }
    }

    /// Whether the text lives as long as the process, or is empty.
    bool isStatic() const noexcept { return owned_.empty(); }

    /// The text; the view is valid until this is changed.
    std::string_view view() const noexcept { return owned_.empty() ? referred_ : std::string_view(owned_); }
    operator std::string_view() const noexcept { return view(); }  // NOLINT(google-explicit-constructor)
    std::string string() const { return std::string(view()); }

    friend bool operator==(const SourceText& left, const SourceText& right) noexcept {
        return left.view() == right.view();
    }
    friend bool operator==(const SourceText& left, std::string_view right) noexcept { return left.view() == right; }
    friend bool operator==(const SourceText& left, const char* right) noexcept { return left.view() == right; }

private:
    std::string_view referred_;
    std::string owned_;
};

/// Writes the text.
VELORA_EXPORT std::ostream& operator<<(std::ostream& stream, const SourceText& text);

}  // namespace velora
