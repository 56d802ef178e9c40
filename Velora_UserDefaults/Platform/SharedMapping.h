#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

/// A file in memory that one process at a time has for itself. Internal.
///
/// What is stored in the bytes is the kernel's at once, without a system call: it stays when the process crashes or
/// is killed, and the next one that opens the file finds it. (When the machine stops, it is as safe as what was
/// written and not brought to the disk.) All bytes have their place on the disk from the beginning, so that storing
/// cannot fail for want of room. But whoever truncates the file takes their place away: the next use of them then ends
/// the process (SIGBUS).
///
/// The file is this object's alone until that is destroyed or the process ends, however it ends. A forked child
/// does not have the bytes: there `bytes()` is empty. Not synchronised.
class SharedMapping {
public:
    /// Opens the file at `path`, and makes it, for the user alone (0600), where there is none. Its bytes begin with
    /// `mark`, or are zeros. A file with fewer than `size` bytes is lengthened with zeros; a longer one is mapped as
    /// it is; one that others may use is made the user's alone. Fails with EWOULDBLOCK if another process, or another
    /// object of this one, has the file, with EPERM for one of another user, with EEXIST for one that begins with
    /// something else, and with EINVAL for what is no regular file.
    static FileResult<std::unique_ptr<SharedMapping>> open(const std::string& path, std::size_t size,
                                                           std::string_view mark);

    SharedMapping(const SharedMapping&) = delete;
    SharedMapping& operator=(const SharedMapping&) = delete;
    ~SharedMapping();

    std::span<char> bytes() const noexcept { return bytes_; }

private:
    SharedMapping(int descriptor, std::span<char> bytes) : descriptor_(descriptor), bytes_(bytes) {}
    void letGo() noexcept;
    static void letGoInChild(void* mapping) { static_cast<SharedMapping*>(mapping)->letGo(); }

    int descriptor_;
    std::span<char> bytes_;
    // A child that held the descriptor would keep the lock after the end of its parent.
    ForkChildHandler childHandler_{letGoInChild, this};
};

}  // namespace velora
