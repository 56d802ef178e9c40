#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <limits>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreEngine.h>
#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/Platform/OwnFolder.h>

namespace velora {
namespace {

using std::chrono::milliseconds;
using State = DefaultsStoreContents::State;

constexpr std::int64_t millisecond = 1'000'000;
// What other programs do to the file is to show within 50 ms; the coarse clock may be 10 ms late.
constexpr std::int64_t lookInterval = 38 * millisecond;
// How long somebody may take to finish a file.
constexpr std::int64_t patience = 200 * millisecond;

std::atomic<std::uint64_t> lastIdentifier{0};

std::int64_t coarseNow() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

/// The newest snapshot that this thread has seen, of the store that it used last. Kept apart from the object that owns
/// the snapshot so that a read needs no check whether that is made already, or gone already at the end of the thread.
struct ThreadCache {
    std::uint64_t store;
    std::uint64_t version;
    const DefaultsStoreSnapshot* snapshot;
    bool threadEnds;
};

// The library is linked, not opened late, so this fits the static thread-local block; that spares a call.
__attribute__((tls_model("initial-exec"))) constinit thread_local ThreadCache threadCache{};

struct ThreadCacheOwner {
    std::shared_ptr<const DefaultsStoreSnapshot> snapshot;
    ThreadCacheOwner() = default;
    ThreadCacheOwner(const ThreadCacheOwner&) = delete;
    ThreadCacheOwner& operator=(const ThreadCacheOwner&) = delete;
    ~ThreadCacheOwner() { threadCache = {.store = 0, .version = 0, .snapshot = nullptr, .threadEnds = true}; }
};

/// The keys of all slots, the newest first. Never freed.
struct SlotKey {
    std::string text;
    const SlotKey* next;
    std::size_t count;  // of slots, with this one
};
constinit std::atomic<const SlotKey*> newestSlot{nullptr};

std::shared_ptr<const DefaultsStoreContent> contentOf(std::string text, const DefaultsStoreDocument& document) {
    auto content = std::make_shared<DefaultsStoreContent>();
    content->text = std::move(text);
    for (const DefaultsStoreDocument::Member& member : document.members()) {
        if (DefaultsStoreValue value = DefaultsStoreValue::fromJSON(member.json); member.key && !value.isNull()) {
            content->values.emplace(*member.key, std::move(value));
        }
    }
    return content;
}

/// The document that was read; nothing if there is a fault.
std::optional<DefaultsStoreDocument> documentIn(const DefaultsStoreContents& contents, std::string& fault) {
    fault = contents.fault;
    if (contents.state == State::missing) {
        return DefaultsStoreDocument();
    }
    return contents.state == State::complete ? DefaultsStoreDocument::parse(contents.bytes, fault) : std::nullopt;
}

}  // namespace

/// The store's lock, between processes and threads, for as long as the object lives.
///
/// It belongs to the open file, so a child that was forked meanwhile would hold it beyond the death of this process:
/// locks_ lets the child close it first thing.
class DefaultsStoreEngine::FileLock {
public:
    FileLock(DefaultsStoreEngine& engine, std::string& fault) : engine_(engine), path_(engine.path_ + ".lock") {
        do {
            close();
            open();
            if (file_ < 0 || !lock()) {
                fault = withSystemError("cannot lock it");
                return;
            }
            // If somebody deleted the lock file meanwhile, others lock another one.
        } while (DefaultsStoreIdentity::at(path_) != DefaultsStoreIdentity::of(file_));
        isHeld_ = true;
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock() { close(); }

    bool isHeld() const { return isHeld_; }

private:
    void open() {
        const std::scoped_lock locked(engine_.mutex_);
        file_ = openOwnFile(path_, O_RDWR | O_CREAT).release();
        engine_.locks_.push_back(file_);
    }
    void close() {
        const std::scoped_lock locked(engine_.mutex_);
        std::erase(engine_.locks_, file_);
        Descriptor(std::exchange(file_, -1)).close();
    }
    bool lock() const {
        constexpr std::chrono::microseconds longestPause = milliseconds(2);
        const auto reportTime = std::chrono::steady_clock::now() + std::chrono::seconds(1);
        std::chrono::microseconds pause{50};
        while (std::chrono::steady_clock::now() < reportTime) {
            if (::flock(file_, LOCK_EX | LOCK_NB) == 0) {
                return true;
            }
            if (errno != EWOULDBLOCK && errno != EINTR) {
                return false;
            }
            std::this_thread::sleep_for(pause);
            pause = std::min(2 * pause, longestPause);
        }
        // Who is told may write as well, and then waits here, too.
        if (!engine_.isWaitReported_.exchange(true)) {
            engine_.report(fmt::format("Preferences: somebody holds {}; writing waits for it.", path_));
        }
        const bool isLocked = retrying([this] { return ::flock(file_, LOCK_EX); }) == 0;
        engine_.isWaitReported_ = false;
        return isLocked;
    }

    DefaultsStoreEngine& engine_;
    const std::string path_;
    int file_ = -1;
    bool isHeld_ = false;
};

DefaultsStore::Key DefaultsStore::Key::slot(std::string_view text) {
    auto* slot = new SlotKey{.text = std::string(text), .next = newestSlot.load(), .count = 0};
    do {
        slot->count = slot->next == nullptr ? 1 : slot->next->count + 1;
    } while (!newestSlot.compare_exchange_weak(slot->next, slot));
    Key key(slot->text);
    key.slot_ = slot->count - 1;
    return key;
}

DefaultsStoreEngine::DefaultsStoreEngine(std::string path)
    : path_(std::move(path)),
      folder_(folderOfFile(path_)),
      identifier_(lastIdentifier.fetch_add(1) + 1),
      counter_(folder_),
      snapshot_(std::make_shared<const Snapshot>()),
      forkHandler_({.beforeFork = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->mutex_.lock(); },
                    .inParent = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->mutex_.unlock(); },
                    .inChild = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->inChild(); }},
                   this) {}

DefaultsStoreSnapshot::Slot DefaultsStoreEngine::search(const Snapshot& snapshot, std::string_view key) {
    const auto valueIn = [key](const DefaultsStoreValues& values) {
        const auto found = values.find(key);
        return found == values.end() ? nullptr : &found->second;
    };
    const DefaultsStoreValue* value = valueIn(snapshot.content->values);
    const DefaultsStoreValue* registered = valueIn(*snapshot.registered);
    return {.value = value == nullptr ? registered : value, .registered = registered};
}

const DefaultsStoreSnapshot* DefaultsStoreEngine::cachedSnapshot() const {
    const ThreadCache& cache = threadCache;
    const bool newest = cache.store == identifier_ && cache.version == version_.load(std::memory_order_acquire);
    return newest ? cache.snapshot : nullptr;
}

bool DefaultsStoreEngine::isCurrent(const Snapshot& snapshot) const {
    return counter_.value() == snapshot.generation && coarseNow() < nextLook_.load(std::memory_order_relaxed);
}

std::shared_ptr<const DefaultsStoreSnapshot> DefaultsStoreEngine::currentSnapshot() {
    Reports reports;
    std::shared_ptr<const Snapshot> snapshot;
    for (bool mayBeFinished = true; mayBeFinished;) {
        {
            const std::scoped_lock locked(mutex_);
            mayBeFinished = refresh(reports);
            snapshot = cacheForThread();
        }
        if (mayBeFinished) {
            std::this_thread::sleep_for(milliseconds(5));
        }
    }
    for (const std::string& line : reports) {
        report(line);
    }
    return snapshot;
}

std::shared_ptr<const DefaultsStoreSnapshot> DefaultsStoreEngine::cacheForThread() {
    if (!threadCache.threadEnds) {
        static thread_local ThreadCacheOwner owner;
        owner.snapshot = snapshot_;
        threadCache = {.store = identifier_,
                       .version = version_.load(std::memory_order_relaxed),
                       .snapshot = snapshot_.get(),
                       .threadEnds = false};
    }
    return snapshot_;
}

void DefaultsStoreEngine::publish(Snapshot snapshot) {
    if (snapshot.content != snapshot_->content) {
        ++snapshot.changes;
    }
    const SlotKey* slot = newestSlot.load();
    snapshot.slots.resize(slot == nullptr ? 0 : slot->count);
    for (; slot != nullptr; slot = slot->next) {
        snapshot.slots[slot->count - 1] = search(snapshot, slot->text);
    }
    snapshot_ = std::make_shared<const Snapshot>(std::move(snapshot));
    version_.fetch_add(1, std::memory_order_release);
}

/// Makes the snapshot current. Returns whether it has no values yet though there may soon be some.
bool DefaultsStoreEngine::refresh(Reports& reports) {
    if (path_.empty()) {
        nextLook_.store(std::numeric_limits<std::int64_t>::max(), std::memory_order_relaxed);
        if (snapshot_->generation != counter_.value()) {
            Snapshot first = *snapshot_;
            first.generation = counter_.value();
            publish(std::move(first));
        }
        return false;
    }
    const std::int64_t now = coarseNow();
    const bool isDue = now >= nextLook_.load(std::memory_order_relaxed);
    if (isDue) {
        counter_.verify();
        nextLook_.store(now + lookInterval, std::memory_order_relaxed);
    }
    // The counter comes first, then the file: what is read now is as new as this generation, or newer.
    const std::uint64_t counter = counter_.value();
    const std::uint64_t generation = DefaultsStoreCounter::isSettled(counter) ? counter : Snapshot::never;
    if (!isDue && generation == snapshot_->generation && generation != Snapshot::never) {
        return false;
    }
    const SlotKey* slot = newestSlot.load();
    const bool lacksSlots = slot != nullptr && slot->count > snapshot_->slots.size();
    if (!snapshot_->settled || DefaultsStoreIdentity::at(path_) != snapshot_->identity) {
        load(generation, now, reports);
    } else if (generation != snapshot_->generation || lacksSlots) {
        Snapshot same = *snapshot_;
        same.generation = generation;
        publish(std::move(same));
    }
    const bool mayBeFinished = !hasRead_ && failingSince_ != 0 && now - failingSince_ < patience;
    if (mayBeFinished) {
        nextLook_.store(0, std::memory_order_relaxed);
    }
    return mayBeFinished;
}

void DefaultsStoreEngine::load(std::uint64_t generation, std::int64_t now, Reports& reports) {
    DefaultsStoreContents contents = DefaultsStoreContents::read(path_);
    Snapshot loaded = *snapshot_;
    loaded.generation = generation;
    loaded.identity = contents.identity;
    loaded.settled = contents.settled;
    std::string fault;
    // What was parsed before is not parsed again.
    const bool isSame = hasRead_ && contents.fault.empty() && contents.bytes == loaded.content->text;
    if (const auto document = isSame ? std::nullopt : documentIn(contents, fault)) {
        loaded.content = contentOf(std::move(contents.bytes), *document);
    }
    if (fault.empty()) {
        hasRead_ = true;
        failingSince_ = 0;
        reportedFault_.clear();
    } else {
        loaded.settled = false;
        failingSince_ = failingSince_ == 0 ? now : failingSince_;
        // Somebody may be writing the file at this moment.
        if (now - failingSince_ >= patience && fault != reportedFault_) {
            reports.push_back(fmt::format("Preferences: cannot read {}: {}.{}", path_, fault,
                                          hasRead_ ? " The last values hold until it can be read." : ""));
            reportedFault_ = fault;
        }
    }
    publish(std::move(loaded));
}

bool DefaultsStoreEngine::write(const std::function<bool(DefaultsStoreDocument&)>& change) {
    Reports reports;
    std::string fault;
    const bool isStored = changeFile(change, reports, fault);
    if (!isStored) {
        reports.push_back(fmt::format("Preferences: cannot store a value in {}: {}.", path_, fault));
    }
    for (const std::string& line : reports) {
        report(line);
    }
    return isStored;
}

bool DefaultsStoreEngine::changeFile(const std::function<bool(DefaultsStoreDocument&)>& change, Reports& reports,
                                     std::string& fault) {
    if (path_.empty()) {
        const std::scoped_lock locked(mutex_);
        auto document = DefaultsStoreDocument::parse(snapshot_->content->text, fault).value_or(DefaultsStoreDocument());
        if (change(document)) {
            Snapshot changed = *snapshot_;
            changed.content = contentOf(document.text(), document);
            publish(std::move(changed));
        }
        return true;
    }
    if (const int error = makeOwnFolder(folder_); error != 0) {
        errno = error;
        fault = withSystemError("cannot make its folder");
        return false;
    }
    const FileLock lock(*this, fault);
    auto document = lock.isHeld() ? documentToChange(reports, fault) : std::nullopt;
    return document && (!change(*document) || replaceFile(*document, fault));
}

std::optional<DefaultsStoreDocument> DefaultsStoreEngine::documentToChange(Reports& reports, std::string& fault) {
    const std::int64_t end = coarseNow() + patience;
    for (;;) {
        const DefaultsStoreContents contents = DefaultsStoreContents::read(path_);
        auto document = documentIn(contents, fault);
        if (document || contents.state == State::unreadable) {
            return document;
        }
        if (coarseNow() >= end) {
            break;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    const auto aside = setStoreFileAside(path_);
    if (!aside) {
        fault = withSystemError(fmt::format("it is damaged ({}) and stays in place: cannot rename it", fault));
        return std::nullopt;
    }
    reports.push_back(fmt::format("Preferences: {} is damaged ({}). It is kept as {}.", path_, fault, *aside));
    return DefaultsStoreDocument();
}

bool DefaultsStoreEngine::replaceFile(const DefaultsStoreDocument& document, std::string& fault) {
    std::string text = document.text();
    if (text.size() > DefaultsStoreDocument::maximumSize) {
        fault = fmt::format("{} bytes are more than a store may have", text.size());
        return false;
    }
    const Descriptor file = writeBeside(path_, text);
    std::uint64_t counter = Snapshot::never;
    bool isInPlace = false;
    if (file) {
        DefaultsStoreCounter::Change published(folder_);
        isInPlace = putInPlace(path_);
        fault = isInPlace ? "" : withSystemError("cannot write it");
        counter = published.complete();
    } else {
        fault = withSystemError("cannot write it");
    }
    if (!isInPlace) {
        return false;
    }
    {
        const std::scoped_lock locked(mutex_);
        Snapshot changed = *snapshot_;
        changed.content = contentOf(std::move(text), document);
        changed.generation = DefaultsStoreCounter::isSettled(counter) ? counter : Snapshot::never;
        changed.identity = DefaultsStoreIdentity::of(file.get());
        changed.settled = false;
        hasRead_ = true;
        failingSince_ = 0;
        publish(std::move(changed));
    }
    syncFolder(folder_);
    return true;
}

const DefaultsStoreValue* DefaultsStoreEngine::findRegistered(const Snapshot& snapshot, const DefaultsStore::Key& key) {
    return key.slot_ < snapshot.slots.size() ? snapshot.slots[key.slot_].registered
                                             : search(snapshot, key.text_).registered;
}

void DefaultsStoreEngine::registerDefault(const DefaultsStore::Key& key, const DefaultsStore::Registered& value) {
    const auto isRegistered = [&](const DefaultsStoreValue* known) {
        if (known == nullptr) {
            return false;
        }
        if (const bool* boolean = std::get_if<bool>(&value)) {
            return known->type == DefaultsStore::Type::boolean && known->boolean == *boolean;
        }
        if (const std::int64_t* integer = std::get_if<std::int64_t>(&value)) {
            return known->type == DefaultsStore::Type::integer && known->integer == *integer;
        }
        return known->type == DefaultsStore::Type::string && known->text == std::get<std::string_view>(value);
    };
    if (const Snapshot* cached = cachedSnapshot(); cached != nullptr && isRegistered(findRegistered(*cached, key))) {
        return;
    }
    const std::scoped_lock locked(mutex_);
    if (!isRegistered(search(*snapshot_, key.text_).registered)) {
        auto registered = std::make_shared<DefaultsStoreValues>(*snapshot_->registered);
        registered->insert_or_assign(std::string(key.text_), DefaultsStoreValue::fromRegistered(value));
        Snapshot changed = *snapshot_;
        changed.registered = std::move(registered);
        publish(std::move(changed));
    }
    cacheForThread();
}

std::string DefaultsStoreEngine::presentFault() const {
    std::string fault;
    documentIn(path_.empty() ? DefaultsStoreContents() : DefaultsStoreContents::read(path_), fault);
    return fault;
}

void DefaultsStoreEngine::setReportHandler(DefaultsStore::ReportHandler handler) {
    auto shared = handler ? std::make_shared<const DefaultsStore::ReportHandler>(std::move(handler)) : nullptr;
    const std::scoped_lock locked(mutex_);
    handler_.swap(shared);
}

void DefaultsStoreEngine::report(const std::string& line) const {
    std::shared_ptr<const DefaultsStore::ReportHandler> handler;
    {
        const std::scoped_lock locked(mutex_);
        handler = handler_;
    }
    if (handler) {
        (*handler)(line);
    } else {
        fmt::print(stderr, "{}\n", line);
    }
}

void DefaultsStoreEngine::inChild() {
    for (const int file : std::exchange(locks_, {})) {
        ::close(file);
    }
    mutex_.unlock();
}

}  // namespace velora
