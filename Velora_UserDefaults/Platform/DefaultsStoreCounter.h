#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Descriptor.h>

namespace velora {

/// The counter, shared by all processes of a user, that says whether the stores in one folder were written. Internal.
///
/// It is eight bytes of POSIX shared memory (shm_overview(7)) named by the folder's owner, device and inode: no
/// program that copies, restores or syncs the folder reaches it, and none can pull it from under a process.
///
/// - Even: the files are as they were when the counter took this value. What was read from a file after the counter
///   was seen to be `n` is current for as long as it is `n`.
/// - Odd: a writer is about to rename a new file over an old one, has just done so, or died doing so. Look at the file
///   itself, until the next writer makes the counter even.
///
/// Where there is none, `value()` is odd as well: the folder is missing or others may write to it, shared memory is
/// not to be had, or the object's owner or mode is not what it should be. Processes in different mount namespaces may
/// have counters of their own; they notice each other when they look at the file.
///
/// Writers use pwrite(2), not the mapping, so no wild pointer of the host reaches it.
///
/// `value()` is thread-safe; calls of `verify()` must be kept apart.
class DefaultsStoreCounter {
public:
    /// For the stores in `folder`; without a folder it stays 0. Nothing is opened.
    explicit DefaultsStoreCounter(std::string folder);
    DefaultsStoreCounter(const DefaultsStoreCounter&) = delete;
    DefaultsStoreCounter& operator=(const DefaultsStoreCounter&) = delete;
    ~DefaultsStoreCounter();

    std::uint64_t value() const {
        return std::atomic_ref<std::uint64_t>(*counter_.load(std::memory_order_acquire))
            .load(std::memory_order_acquire);
    }
    static bool isSettled(std::uint64_t value) { return (value & 1U) == 0; }

    /// Maps the folder's counter, and makes it where it is missing. To be called now and then: systems remove such
    /// objects when the user logs out.
    void verify();

    /// A change of a file: makes the counter odd, and even again when it is completed. Needs the store's lock.
    class Change {
    public:
        explicit Change(const std::string& folder);
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;
        ~Change() { complete(); }
        /// Publishes the change. Returns the counter, or an odd number if there is none.
        std::uint64_t complete();

    private:
        Descriptor object_;
        std::uint64_t odd_ = 1;
    };

private:
    std::string folder_;
    std::atomic<std::uint64_t*> counter_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    // Mappings are kept when another replaces them: a thread may have loaded the address and not read it yet.
    std::vector<std::uint64_t*> mappings_;
};

}  // namespace velora
