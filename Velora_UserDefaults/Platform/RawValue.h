#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

namespace velora {

/// The last case of an integer-backed enumeration whose cases count up from 0 without a gap.
/// Each such enumeration specialises it beside its definition; the functions below serve them all.
template <typename Enumeration>
inline constexpr std::nullptr_t lastCase = nullptr;

/// An enumeration with a last case, whose cases are integers from 0 on.
template <typename Enumeration>
concept RawRepresentable =
    std::is_enum_v<Enumeration> && std::is_same_v<std::remove_cv_t<decltype(lastCase<Enumeration>)>, Enumeration>;

/// The integer behind a case.
template <RawRepresentable Enumeration>
constexpr std::int64_t rawValue(Enumeration value) noexcept {
    return static_cast<std::int64_t>(value);
}

/// The case whose raw value is `raw`; nothing for any other integer, negative ones included.
template <RawRepresentable Enumeration>
constexpr std::optional<Enumeration> fromRawValue(std::int64_t raw) noexcept {
    if (raw < 0 || raw > rawValue(lastCase<Enumeration>)) {
        return std::nullopt;
    }
    return static_cast<Enumeration>(raw);
}

/// Every case, in the order of the raw values.
template <RawRepresentable Enumeration>
inline constexpr auto allCases = [] {
    std::array<Enumeration, static_cast<std::size_t>(lastCase<Enumeration>) + 1> cases{};
    for (std::size_t raw = 0; raw < cases.size(); ++raw) {
        cases[raw] = static_cast<Enumeration>(raw);
    }
    return cases;
}();

}  // namespace velora
