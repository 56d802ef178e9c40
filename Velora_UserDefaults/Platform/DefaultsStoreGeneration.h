#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>

namespace velora {

/// The counter, shared by all processes of the user, that says whether the store's file was written. Internal.
///
/// It is the first eight bytes of a small file beside the store, which every process maps.
///
/// - Even: the file is as it was when the counter took this value. What was read from the file after the counter was
///   seen to be `n` is current for as long as the counter is `n`.
/// - Odd: a writer is about to rename a new file over the old one, or has just done so, or died doing so. The counter
///   says nothing; look at the file itself.
///
/// A writer that holds the lock makes the counter odd, renames, and makes it even again, two higher than before. If it
/// dies in between, the counter stays odd: readers look at the file on every read, slower and never stale, until the
/// next writer, or `heal()` in some reader, makes it even. Any eight bytes are a valid counter, so the file cannot be
/// damaged, only missing or short.
///
/// Writers change the counter with pwrite(2), not through the mapping: on a full disk that is an error, where a store
/// into a page that has no block yet would end the process with SIGBUS; and no wild pointer of the host can reach it.
/// Readers touch the mapping only. Truncating the file under a running program would give a reader that touches it
/// SIGBUS. Nothing of ours truncates it, `verify()` restores the length when it next looks, and only the user's own
/// programs can (mode 0600).
///
/// `value()` may be called from any thread. Everything else must be kept apart by the caller's lock; `make()` and
/// `heal()`, and a `DefaultsStoreChange`, need the store's lock on top.
class DefaultsStoreGeneration {
public:
    /// For the counter in the file at `path`; an empty path makes one that stays 0. Nothing is opened.
    explicit DefaultsStoreGeneration(std::string path);
    DefaultsStoreGeneration(const DefaultsStoreGeneration&) = delete;
    DefaultsStoreGeneration& operator=(const DefaultsStoreGeneration&) = delete;
    ~DefaultsStoreGeneration();

    /// The counter now; odd as long as none is mapped.
    std::uint64_t value() const {
        return std::atomic_ref<std::uint64_t>(*counter_.load(std::memory_order_acquire))
            .load(std::memory_order_acquire);
    }

    static bool isSettled(std::uint64_t value) { return (value & 1U) == 0; }

    /// Maps the file if it is there and another one than was mapped, and lets go of one that is not usable any more.
    /// Returns whether the file at the path is mapped now; if not, `make()` may help.
    bool verify();
    /// Makes the file, or gives it its length, or takes one out of the way that is not ours, and maps it.
    void make();

    /// Completes the change of a writer that died.
    void heal();

private:
    bool map(int descriptor);
    void unmap();

    std::string path_;
    std::atomic<std::uint64_t*> counter_;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    // Mappings are kept when another replaces them: a thread may have loaded the address and not read it yet.
    std::vector<void*> mappings_;
};

/// One change of the store's file: makes the counter odd, and even again when completed. Internal.
class DefaultsStoreChange {
public:
    /// Begins a change for the counter in the file at `path`, which must be there.
    explicit DefaultsStoreChange(const std::string& path);
    DefaultsStoreChange(const DefaultsStoreChange&) = delete;
    DefaultsStoreChange& operator=(const DefaultsStoreChange&) = delete;
    ~DefaultsStoreChange() { complete(); }

    /// Whether the counter was marked. If not, errno says why and the file must not be touched.
    bool begun() const { return begun_; }
    /// Publishes the new contents of the file. If the counter cannot be written it stays odd, which is slow and right.
    void complete();

private:
    Descriptor file_;
    std::uint64_t odd_ = 0;
    bool begun_ = false;
};

}  // namespace velora
