#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <type_traits>

namespace velora {

/// Text or none, as a parameter: takes literals, `std::string`, `std::string_view`, optional ones of these, and
/// `std::nullopt`. A null pointer is no text.
///
/// It refers to the text and does not own it, so make none that outlives the call. A plain value.
class OptionalText {
public:
    /// No text.
    constexpr OptionalText() = default;
    /// No text.
    constexpr OptionalText(std::nullopt_t /*none*/) {}  // NOLINT(google-explicit-constructor): as all of these
    /// No text.
    constexpr OptionalText(std::nullptr_t /*none*/) {}  // NOLINT(google-explicit-constructor)
    /// A text that ends with a NUL; none if the pointer is null.
    constexpr OptionalText(const char* text)  // NOLINT(google-explicit-constructor)
        : text_(text == nullptr ? std::nullopt : std::optional<std::string_view>(text)) {}
    /// A text.
    template <typename Text>
    requires(std::is_class_v<Text>&& std::is_convertible_v<const Text&, std::string_view>) constexpr OptionalText(
        const Text& text)  // NOLINT(google-explicit-constructor)
        : text_(std::string_view(text)) {}
    /// What the optional holds; none if that is nothing.
    template <typename Text>
    requires std::is_constructible_v<OptionalText, const Text&>
    constexpr OptionalText(const std::optional<Text>& text)  // NOLINT(google-explicit-constructor)
        : OptionalText(text ? OptionalText(*text) : OptionalText()) {}

    /// The text, or none.
    constexpr operator std::optional<std::string_view>() const {  // NOLINT(google-explicit-constructor)
        return text_;
    }

private:
    std::optional<std::string_view> text_;
};

}  // namespace velora
