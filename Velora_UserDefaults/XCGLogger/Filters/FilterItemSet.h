#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace velora {

/// The distinct texts that a filter matches, and their part of the filter's description.
///
/// Texts are equal when their bytes are, and sorted by their bytes, which for UTF-8 is the order of
/// the code points. Not synchronised. It serves the filters of this library; hosts have no use for it.
class FilterItemSet {
public:
    /// Whether `item` was not there yet.
    bool insert(std::string item);
    void clear() noexcept;
    bool contains(std::string_view item) const { return items_.contains(item); }

    /// What an allow list (`inverse`) or a block list of these items does: "Including only matches
    /// for: " or "Excluding matches for: " and the items in ascending order, up to five of them on
    /// one line, more on a line each.
    std::string description(bool inverse) const;

private:
    std::set<std::string, std::less<>> items_;
};

}  // namespace velora
