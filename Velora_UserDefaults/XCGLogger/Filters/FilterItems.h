#pragma once

#include <concepts>
#include <initializer_list>
#include <ranges>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace velora {

class FilterItems;

/// A range of text that can be copied into `FilterItems`.
template <typename Range>
concept FilterItemSource =
    !std::derived_from<std::remove_cvref_t<Range>, FilterItems> && std::ranges::input_range<Range> &&
    std::constructible_from<std::string, std::ranges::range_reference_t<Range>>;

/// The texts that a filter is given to match, in the order they were given: a list in braces, or a
/// copy of any range of text.
///
///     filter->addFileNames({"Socket.cpp", "Pipe.cpp"});
///     filter->addFileNames(std::vector<std::string_view>{"Socket.cpp", "Pipe.cpp"});
///
/// A value; not synchronised.
class FilterItems {
public:
    /// No texts.
    FilterItems() = default;
    /// The texts of a list in braces.
    FilterItems(std::initializer_list<std::string> items) : items_(items) {}

    /// Copies of the texts of a range.
    template <FilterItemSource Range>
    FilterItems(Range&& items) {  // NOLINT(bugprone-forwarding-reference-overload): the concept excludes these
        for (auto&& item : items) {
            items_.emplace_back(std::forward<decltype(item)>(item));
        }
    }

    /// The texts, in the order they were given.
    auto begin() const noexcept { return items_.begin(); }
    auto end() const noexcept { return items_.end(); }

private:
    std::vector<std::string> items_;
};

/// Makes a filter an allow list: only lines that match one of the items pass.
///
///     make<TagFilter>(IncludeFrom{"net", "auth"})
struct IncludeFrom : FilterItems {
    /// As for `FilterItems`.
    using FilterItems::FilterItems;
};

/// Makes a filter a block list: lines that match one of the items are dropped.
///
///     make<TagFilter>(ExcludeFrom{"noisy"})
struct ExcludeFrom : FilterItems {
    /// As for `FilterItems`.
    using FilterItems::FilterItems;
};

}  // namespace velora
