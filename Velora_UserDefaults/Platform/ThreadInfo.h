#pragma once

/// Facts about the calling thread. Every function may be called by any thread at any time, also in a
/// forked child, in destructors of thread-local and static objects, and never throws but for lack of memory.

#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// Whether the calling thread is the process's main thread, the one that `main` runs on. In a forked child that is
/// the thread that forked. Costs a few nanoseconds after a thread's first call.
VELORA_EXPORT bool isMainThread();

/// The calling thread's name, if it was given one of its own.
///
/// A name given by `setCurrentThreadName` is returned in full. Otherwise the kernel is asked (prctl(2),
/// PR_GET_NAME), so a name that was set by pthread_setname_np(3), by whichever thread, counts from then on. But every
/// thread starts with the name of the thread that made it, the first one with the program's name, and a name that was
/// merely inherited is none. A thread that was named by the kernel's means counts as named if its name is neither
/// the program's, nor the one that the main thread has when this name is first met. What that rule cannot see: a thread
/// that inherited the name of a named thread other than the main one counts as named, one that was explicitly
/// given the program's or the main thread's name does not.
VELORA_EXPORT std::optional<std::string> currentThreadName();

/// Appends the calling thread's name to `text` and returns true, or returns false if it has none: as
/// `currentThreadName` without making a string of its own.
VELORA_EXPORT bool appendCurrentThreadName(std::string& text);

/// Names the calling thread, for the thread column of log lines and for the kernel, that is for debuggers and `ps -L`.
///
/// Log lines show the name in full, whatever its length, until the thread is renamed by other means. The kernel
/// gets as many whole UTF-8 characters as fit in 15 bytes, up to the first NUL. On the main thread the kernel's name is
/// also that of the process in `ps`. An empty name takes the thread's name away: the kernel's is then the program's.
VELORA_EXPORT void setCurrentThreadName(std::string_view name);

/// Gives the calling thread, which a queue has just started, as much of the queue's `label` for the kernel's name as
/// that takes: no name of its own. Internal.
void nameThreadOfQueue(std::string_view label);

/// The calling thread's address as text, as `printf` prints the value of `pthread_self()` by %p:
/// "0x7f3a1c9e5740". Stays the same in the child for the thread that forks.
VELORA_EXPORT std::string currentThreadIdentifierText();

}  // namespace velora
