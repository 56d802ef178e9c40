#pragma once

/// The way to the system's log. Internal.

#include <string_view>

namespace velora {

/// Sends `message` to the system log by syslog(3), with the facility `user` and the priority `notice`. The log
/// adds its own date and the process's name. Nothing in the message is taken as a format.
///
/// Bytes go as they are, line ends and invalid UTF-8 included, but for NUL, which would end the message: it becomes
/// the visible symbol U+2400. A message of more than 128 KiB, which may not fit in one datagram to the log daemon, is
/// sent as several entries, divided between characters. What the daemon then makes of an entry (many cut
/// them at 8 KiB unless configured otherwise) is its own affair, as is a message sent while no daemon runs: it is lost.
///
/// Any thread, also in a forked child. Waits while the daemon's socket is full. Never throws but for lack of memory.
void systemLog(std::string_view message);

}  // namespace velora
