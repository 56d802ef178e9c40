#pragma once

#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/ExceptionGuard.h>

namespace velora {

/// Prints "Objective-C Exception occurred: " and `description` as one line to standard output: how the
/// engine tells of what must not reach the caller of a log call. Internal. Any thread; never throws.
void printException(std::string_view description) noexcept;

/// Runs `work`; an exception that escapes from it is printed and goes no further. Internal.
template <typename Work>
void reportingExceptions(Work&& work) {
    guarded(std::forward<Work>(work), printException);
}

}  // namespace velora
