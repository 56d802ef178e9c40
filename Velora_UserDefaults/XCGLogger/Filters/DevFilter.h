#pragma once

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Filters/UserInfoFilter.h>

namespace velora {

/// Drops or keeps lines by their developers, the names under `Constants::userInfoKeyDevs`.
///
///     destination->setFilters({{make<DevFilter>(IncludeFrom{"ann"})}});
///
/// Threads and overriding: see `UserInfoFilter`.
class VELORA_EXPORT DevFilter : public UserInfoFilter {
public:
    /// `make<DevFilter>(IncludeFrom{…})` or `make<DevFilter>(ExcludeFrom{…})`.
    using UserInfoFilter::UserInfoFilter;
    ~DevFilter() override;

protected:
    /// Adds the items, then sets the key, unless a subclass's constructor has chosen one.
    void finishMaking() override;
};

}  // namespace velora
