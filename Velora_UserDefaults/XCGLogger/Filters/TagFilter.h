#pragma once

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Filters/UserInfoFilter.h>

namespace velora {

/// Drops or keeps lines by their tags, the names under `Constants::userInfoKeyTags`.
///
///     destination->setFilters({{make<TagFilter>(ExcludeFrom{"noisy"})}});
///
/// Threads and overriding: see `UserInfoFilter`.
class VELORA_EXPORT TagFilter : public UserInfoFilter {
public:
    /// `make<TagFilter>(IncludeFrom{…})` or `make<TagFilter>(ExcludeFrom{…})`.
    using UserInfoFilter::UserInfoFilter;
    ~TagFilter() override;

protected:
    /// Adds the items, then sets the key, unless a subclass's constructor has chosen one.
    void finishMaking() override;
};

}  // namespace velora
