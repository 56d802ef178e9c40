#pragma once

#include <any>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <vector>

/// What a user-info value is at run time: a text, a list, a set or something else. For the library's
/// own use; not installed. Safe to call from any thread.
///
/// A text is a `std::string`, a `std::string_view` or a `const char*` that is not null. A list is a
/// `std::vector` and a set a `std::set` or `std::unordered_set` of such texts, of booleans or of
/// numbers; a list may also be a `std::vector<std::any>`.
namespace velora {

/// Calls `visit` with what `value` holds if that is one of the candidates; returns whether it is.
template <typename... Candidates, typename Visit>
bool visitHeld(const std::any& value, Visit visit) {
    const auto visitIfHeld = [&]<typename Candidate>(std::type_identity<Candidate>) {
        const auto* held = std::any_cast<Candidate>(&value);
        if (held != nullptr) {
            visit(*held);
        }
        return held != nullptr;
    };
    return (visitIfHeld(std::type_identity<Candidates>()) || ...);
}

/// As `visitHeld`, for the sets of the given element types.
template <typename... Elements, typename Visit>
bool visitSet(const std::any& value, Visit visit) {
    return (
        visitHeld<std::set<Elements>, std::set<Elements, std::less<>>, std::unordered_set<Elements>>(value, visit) ||
        ...);
}

/// The one text that `value` is; nothing if it is anything else. Refers to `value`.
std::optional<std::string_view> textIn(const std::any& value);

/// Whether `value` is a set.
bool isSet(const std::any& value);

/// Copies of the elements of `value`, texts as `std::string`; nothing if it is no list.
std::optional<std::vector<std::any>> elementsOfList(const std::any& value);

/// Whether `isWanted` says yes to a text of `value`, which is a set of texts, a list of nothing but
/// texts, or one text; no other value has texts.
template <typename Predicate>
bool hasText(const std::any& value, Predicate isWanted) {
    bool found = false;
    const auto searchTexts = [&](const auto& texts) {
        for (const auto& text : texts) {
            found = found || isWanted(std::string_view(text));
        }
    };
    const auto searchMixedList = [&](const std::vector<std::any>& elements) {
        for (const std::any& element : elements) {
            const auto text = textIn(element);
            if (!text) {
                found = false;
                return;
            }
            found = found || isWanted(*text);
        }
    };
    const auto text = textIn(value);
    if (text) {
        return isWanted(*text);
    }
    if (visitSet<std::string, std::string_view, const char*>(value, searchTexts)) {
        return found;
    }
    if (!visitHeld<std::vector<std::string>, std::vector<std::string_view>, std::vector<const char*>>(value,
                                                                                                      searchTexts)) {
        visitHeld<std::vector<std::any>>(value, searchMixedList);
    }
    return found;
}

}  // namespace velora
