#include <utility>

#include <Velora_UserDefaults/XCGLogger/Filters/FilterItemSet.h>

namespace velora {

namespace {

constexpr std::size_t fewestItemsOnLinesOfTheirOwn = 6;
constexpr std::string_view lineStart = "\n\t- ";

}  // namespace

bool FilterItemSet::insert(std::string item) {
    return items_.insert(std::move(item)).second;
}

void FilterItemSet::clear() noexcept {
    items_.clear();
}

std::string FilterItemSet::description(bool inverse) const {
    std::string text = inverse ? "Including only matches for: " : "Excluding matches for: ";
    const bool onLines = items_.size() >= fewestItemsOnLinesOfTheirOwn;
    std::string_view separator = onLines ? lineStart : "";
    for (const std::string& item : items_) {
        text.append(separator).append(item);
        separator = onLines ? lineStart : ", ";
    }
    return text;
}

}  // namespace velora
