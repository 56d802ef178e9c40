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

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreGeneration.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreSnapshot.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/RecursiveLock.h>

namespace velora {

/// Keeps a snapshot of the store's file current and changes the file. Internal.
///
/// The path of a read: the thread's own reference to the newest snapshot, if the shared counter, the store's version
/// and the clock agree that it is current. No lock and no shared reference count is touched. Otherwise `refresh()`
/// looks, under a lock, what there is to do.
///
/// Everything may be called from any thread, and on both sides of a fork: the fork waits until no other thread is
/// inside `mutex_`, which is held for a refresh at most and never while waiting for another process.
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

    /// Lets `change` change the newest contents, which returns whether it did, and stores them. Returns whether
    /// they are stored; if not, that has been reported.
    bool write(const std::function<bool(DefaultsStoreDocument&)>& change);

    void registerDefault(std::string_view key, const DefaultsStore::Registered& value);

    /// Makes the next read look at the file itself.
    void lookAtFile();

    void setReportHandler(DefaultsStore::ReportHandler handler);
    /// Tells the handler. No lock may be held.
    void report(const std::string& line) const;

private:
    using Snapshot = DefaultsStoreSnapshot;
    using Reports = std::vector<std::string>;

    const Snapshot* cachedSnapshot() const;
    bool isCurrent(const Snapshot& snapshot) const;
    std::shared_ptr<const Snapshot> currentSnapshot();

    // With mutex_ held:
    std::shared_ptr<const Snapshot> cacheForThread();
    void publish(Snapshot snapshot);
    void refresh(Reports& reports);
    void lookAtCounter();
    void load(std::uint64_t generation, Reports& reports);
    DefaultsStoreContents readWhole(std::uint64_t& generation) const;
    std::shared_ptr<const DefaultsStoreContent> contentOf(DefaultsStoreContents& contents, Reports& reports);
    void handleDamage(DefaultsStoreContents& contents, const std::string& fault, Reports& reports);
    void reportOnce(const DefaultsStoreContents& contents, const std::string& line, Reports& reports);
    Descriptor tryLock();

    // Writing, with writeLock_ held:
    class FileLock;
    bool changeInMemory(const std::function<bool(DefaultsStoreDocument&)>& change);
    bool changeFile(const std::function<bool(DefaultsStoreDocument&)>& change, Reports& reports);
    std::optional<DefaultsStoreDocument> documentToChange(Reports& reports, std::string& fault);
    bool replaceFile(const std::string& text, std::string& fault);

    void beforeFork();
    void inParent();
    void inChild();

    const std::string path_;
    const std::string lockPath_;
    const std::string generationPath_;
    const std::uint64_t identifier_;

    DefaultsStoreGeneration generation_;
    std::atomic<std::uint64_t> version_{1};  // counts the snapshots that were published
    std::atomic<std::int64_t> nextLook_{0};  // when the file itself is to be looked at again; coarse clock

    std::mutex mutex_;
    std::shared_ptr<const Snapshot> snapshot_;           // guarded by mutex_
    std::optional<DefaultsStoreIdentity> reportedFile_;  // guarded by mutex_
    std::string reportedLine_;                           // guarded by mutex_
    int heldLock_ = -1;                                  // guarded by mutex_: what a forked child must close

    RecursiveLock writeLock_;  // makes writers of this process wait here, where they wait fairly and cheaply

    mutable std::mutex handlerMutex_;
    std::shared_ptr<const DefaultsStore::ReportHandler> handler_;  // guarded by handlerMutex_

    ForkHandler forkHandler_;
};

}  // namespace velora
