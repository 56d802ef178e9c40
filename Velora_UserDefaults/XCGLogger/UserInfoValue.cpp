#include <Velora_UserDefaults/XCGLogger/UserInfoValue.h>

namespace velora {

namespace {

/// Calls `use.operator()<…>()` with the types that lists and sets are recognised with.
template <typename Use>
bool withElementTypes(Use use) {
    return use.template operator()<std::string, std::string_view, const char*, bool, int, unsigned, long, unsigned long,
                                   long long, unsigned long long, float, double>();
}

std::any owned(const std::any& element) {
    const auto text = textIn(element);
    return text ? std::any(std::string(*text)) : element;
}

}  // namespace

std::optional<std::string_view> textIn(const std::any& value) {
    std::optional<std::string_view> found;
    if (!visitHeld<std::string, std::string_view>(value, [&](std::string_view text) { found = text; })) {
        visitHeld<const char*>(value, [&](const char* text) {
            if (text != nullptr) {
                found = text;
            }
        });
    }
    return found;
}

bool isSet(const std::any& value) {
    return withElementTypes([&]<typename... Elements>() { return visitSet<Elements...>(value, [](const auto&) {}); });
}

std::optional<std::vector<std::any>> elementsOfList(const std::any& value) {
    std::vector<std::any> elements;
    const auto copyElements = [&](const auto& list) {
        for (const auto& element : list) {
            elements.push_back(owned(element));
        }
    };
    const bool isList =
        visitHeld<std::vector<std::any>>(value, copyElements) || withElementTypes([&]<typename... Elements>() {
            return visitHeld<std::vector<Elements>...>(value, copyElements);
        });
    return isList ? std::optional(std::move(elements)) : std::nullopt;
}

}  // namespace velora
