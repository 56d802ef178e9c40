#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterItemSet.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterItems.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// Drops or keeps lines by the texts that their user info has under one key. `TagFilter` and
/// `DevFilter` are made for the keys of tags and of developers.
///
///     const auto filter = make<UserInfoFilter>(IncludeFrom{"checkout"});
///     filter->setUserInfoKey("step");
///
/// Open for subclassing; every operation can be overridden, and the properties are read through their
/// accessors. Not synchronised: asking it is safe from several threads at once, changing it while
/// another thread asks is not.
class VELORA_EXPORT UserInfoFilter : public FilterProtocol, public MadeInTwoSteps {
public:
    /// `make<UserInfoFilter>(IncludeFrom{…})`: only lines with one of the items under the key pass;
    /// with an empty list, none.
    UserInfoFilter(Making key, IncludeFrom items);
    /// `make<UserInfoFilter>(ExcludeFrom{…})`: lines with one of the items under the key are dropped.
    UserInfoFilter(Making key, ExcludeFrom items);
    ~UserInfoFilter() override;

    /// The user-info key whose value is matched; empty at first.
    virtual const std::string& userInfoKey() const;
    virtual void setUserInfoKey(std::string userInfoKey);

    /// Whether lines that the logging engine writes about itself are judged by their user info like any
    /// other. If not, as at first, a block list lets them all through and an allow list drops them all.
    virtual bool applyFilterToInternalMessages() const;
    virtual void setApplyFilterToInternalMessages(bool applyFilterToInternalMessages);

    /// Whether the list is an allow list: a line that does not match is dropped.
    virtual bool inverse() const;
    virtual void setInverse(bool inverse);

    /// Adds one item as it is. Returns whether it was not listed yet.
    virtual bool addItem(std::string item);
    /// Adds each item by `addItem`, in order.
    virtual void addItems(const FilterItems& items);
    /// Removes every item; the properties stay.
    virtual void clear();

    /// Whether the line must be dropped. The value under the key matches if one of its texts is listed,
    /// byte by byte: it may be a set of texts (`std::set`, `std::unordered_set`), a list of texts
    /// (`std::vector`; a `std::vector<std::any>` only if it holds nothing else) or a single text, of
    /// `std::string`, `std::string_view` or `const char*`. No value and any other value never match.
    /// Changes neither argument.
    bool shouldExclude(LogDetails& logDetails, std::string& message) override;

    /// "TagFilter: (Filtering Internal) Including only matches for: auth, net", with the name of the
    /// object's own class, and without the brackets if internal lines are not filtered. The items are
    /// sorted; from six on each has a line of its own.
    std::string debugDescription() const override;

protected:
    /// Adds the items that the filter is made with.
    void finishMaking() override;

private:
    UserInfoFilter(Making key, FilterItems items, bool inverse);

    bool matches(const UserInfo& userInfo) const;

    std::string userInfoKey_;
    bool applyFilterToInternalMessages_ = false;
    bool inverse_ = false;
    FilterItemSet itemsToMatch_;
    FilterItems itemsOfMaking_;
};

}  // namespace velora
