#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora {

/// Prints a line `key: old -> new` for each value that changes, whoever changes it, until SIGINT or SIGTERM comes, the
/// output takes no more, or `count` changes are printed (0: no end). Values are JSON text; `(absent)` stands for none.
/// Changes of a key that follow each other faster than they can be read are one. Of no `keys` all are meant.
void printChanges(const DefaultsStore& store, const std::vector<std::string>& keys, std::uint64_t count);

}  // namespace velora
