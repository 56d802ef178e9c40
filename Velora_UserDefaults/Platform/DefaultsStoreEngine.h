#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreCounter.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreSnapshot.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

/// Keeps a snapshot of the store's file current and changes the file. Internal.
///
/// The path of a read: the thread's own reference to the newest snapshot, if the shared counter, the store's version
/// and the clock agree that it is current. No lock and no shared reference count is touched. Otherwise `refresh()`
/// looks, under a mutex, what there is to do.
///
/// Thread-safe, also on both sides of a fork: the fork waits until no other thread is inside `mutex_`, which is held
/// for a refresh at most, never while waiting or calling out.
class DefaultsStoreEngine {
public:
    /// For the file at an absolute path with links resolved; an empty path keeps everything in memory.
    explicit DefaultsStoreEngine(std::string path);
    DefaultsStoreEngine(const DefaultsStoreEngine&) = delete;
    DefaultsStoreEngine& operator=(const DefaultsStoreEngine&) = delete;
    ~DefaultsStoreEngine() = default;

    const std::string& path() const { return path_; }

    /// Returns `use(snapshot)` for the current snapshot. `use` must not call back into a store.
    template <typename Use>
    auto read(Use use) {
        if (const DefaultsStoreSnapshot* cached = cachedSnapshot(); cached != nullptr && isCurrent(*cached)) {
            return use(*cached);
        }
        return use(*currentSnapshot());
    }
    /// The user's value of `key`, else the registered one, else null.
    static const DefaultsStoreValue* find(const DefaultsStoreSnapshot& snapshot, const DefaultsStore::Key& key) {
        return key.slot_ < snapshot.slots.size() ? snapshot.slots[key.slot_].value : search(snapshot, key.text_).value;
    }

    /// Returns the value of `key`, whose default is registered as `value` if it is not yet.
    template <typename Use>
    auto readRegistered(const DefaultsStore::Key& key, DefaultsStore::Type type, std::int64_t value, Use use) {
        if (const DefaultsStoreSnapshot* cached = cachedSnapshot();
            cached != nullptr && key.slot_ < cached->slots.size()) {
            const DefaultsStoreSnapshot::Slot& slot = cached->slots[key.slot_];
            const bool isRegistered =
                slot.registered != nullptr && slot.registered->integer == value && slot.registered->type == type;
            if (isRegistered && isCurrent(*cached)) {
                return use(*slot.value);
            }
        }
        const bool isBoolean = type == DefaultsStore::Type::boolean;
        registerDefault(key, isBoolean ? DefaultsStore::Registered(value != 0) : DefaultsStore::Registered(value));
        return read([&](const DefaultsStoreSnapshot& snapshot) { return use(*find(snapshot, key)); });
    }

    /// Lets `change` change the newest contents, which returns whether it did, and stores them. Returns whether
    /// they are stored; if not, that has been reported.
    bool write(const std::function<bool(DefaultsStoreDocument&)>& change);

    void registerDefault(const DefaultsStore::Key& key, const DefaultsStore::Registered& value);

    /// Why the file cannot be read at present; empty if it can.
    std::string presentFault() const;

    void setReportHandler(DefaultsStore::ReportHandler handler);
    /// Tells the handler. No lock may be held.
    void report(const std::string& line) const;

private:
    using Snapshot = DefaultsStoreSnapshot;
    using Reports = std::vector<std::string>;

    static Snapshot::Slot search(const Snapshot& snapshot, std::string_view key);
    static const DefaultsStoreValue* findRegistered(const Snapshot& snapshot, const DefaultsStore::Key& key);
    const Snapshot* cachedSnapshot() const;
    bool isCurrent(const Snapshot& snapshot) const;
    std::shared_ptr<const Snapshot> currentSnapshot();

    // With mutex_ held:
    std::shared_ptr<const Snapshot> cacheForThread();
    void publish(Snapshot snapshot);
    bool refresh(Reports& reports);
    void load(std::uint64_t generation, std::int64_t now, Reports& reports);

    class FileLock;
    bool changeFile(const std::function<bool(DefaultsStoreDocument&)>& change, Reports& reports, std::string& fault);
    std::optional<DefaultsStoreDocument> documentToChange(Reports& reports, std::string& fault);
    bool replaceFile(const DefaultsStoreDocument& document, std::string& fault);

    void inChild();

    const std::string path_;
    const std::string folder_;
    const std::uint64_t identifier_;

    DefaultsStoreCounter counter_;
    std::atomic<std::uint64_t> version_{1};  // counts the snapshots that were published
    std::atomic<std::int64_t> nextLook_{0};  // when the file itself is to be looked at again; coarse clock

    std::atomic<bool> isWaitReported_{false};

    mutable std::mutex mutex_;
    // Guarded by mutex_:
    std::shared_ptr<const Snapshot> snapshot_;
    std::shared_ptr<const DefaultsStore::ReportHandler> handler_;
    bool hasRead_ = false;           // whether the snapshot's values were in the file once
    std::int64_t failingSince_ = 0;  // 0: the file could be read when it was last looked at
    std::string reportedFault_;
    std::vector<int> locks_;  // open lock files, which a forked child must close

    ForkHandler forkHandler_;
};

}  // namespace velora
