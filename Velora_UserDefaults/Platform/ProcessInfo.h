#pragma once

/// Facts about the running process. Internal. Any thread, also in a forked child and during exit.

#include <string>
#include <sys/types.h>

namespace velora {

/// The name of the program, without folders, as the user started it: the last component of the name that the
/// process was started by, so that a program started by a link has the link's name, as in `ps`. If it was started
/// without a name, the name of its executable file. The same throughout the process's life.
const std::string& processName();

/// The process's identifier; a forked child has its own.
pid_t processIdentifier();

}  // namespace velora
