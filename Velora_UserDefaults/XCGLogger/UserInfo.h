#pragma once

#include <any>
#include <concepts>
#include <functional>
#include <map>
#include <string>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// The free-form metadata of a log record: text keys to values of any type, in the order of the keys.
///
/// Tags, developer names and the mark of the engine's own lines are entries of it; a host may add
/// any others. Filters read booleans, text (`std::string`), lists (`std::vector<std::string>`) and
/// sets (`std::set<std::string>`) back. An empty one owns no memory.
struct UserInfo : std::map<std::string, std::any, std::less<>> {
    /// The map that it is.
    using Entries = std::map<std::string, std::any, std::less<>>;
    using Entries::Entries;
};

/// What a log call takes as user info: a `UserInfo`, or something that becomes one when it is needed,
/// such as a tag.
template <typename Source>
concept UserInfoSource = std::convertible_to<const Source&, UserInfo>;

/// Refers to a log call's user info without making it: the conversion runs only for a call that some
/// destination accepts. Lives no longer than the call; whatever it refers to must outlive it.
class UserInfoReference {
public:
    /// No user info.
    UserInfoReference() = default;

    /// Refers to `source`.
    template <UserInfoSource Source>
    UserInfoReference(const Source& source)  // NOLINT(google-explicit-constructor): call arguments convert
        : source_(&source), resolve_([](const void* object, UserInfo& storage) -> const UserInfo& {
              const Source& typed = *static_cast<const Source*>(object);
              if constexpr (std::same_as<Source, UserInfo>) {
                  return typed;
              } else {
                  storage = typed;
                  return storage;
              }
          }) {}

    /// The user info itself; `storage` holds it if it had to be made.
    const UserInfo& resolve(UserInfo& storage) const {
        return resolve_ == nullptr ? storage : resolve_(source_, storage);
    }

private:
    const void* source_ = nullptr;
    const UserInfo& (*resolve_)(const void* source, UserInfo& storage) = nullptr;
};

}  // namespace velora
