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

namespace velora {
namespace {

// What other programs do to the file is to show within 50 ms; the coarse clock may be 10 ms late.
constexpr std::int64_t lookInterval = 38'000'000;

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

constinit thread_local ThreadCache threadCache{};

struct ThreadCacheOwner {
    std::shared_ptr<const DefaultsStoreSnapshot> snapshot;
    ThreadCacheOwner() = default;
    ThreadCacheOwner(const ThreadCacheOwner&) = delete;
    ThreadCacheOwner& operator=(const ThreadCacheOwner&) = delete;
    ~ThreadCacheOwner() { threadCache = {.store = 0, .version = 0, .snapshot = nullptr, .threadEnds = true}; }
};

bool isRegisteredAs(const DefaultsStoreValue* known, const DefaultsStore::Registered& value) {
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
}

int waitForLock(int descriptor) {
    int result = ::flock(descriptor, LOCK_EX);
    while (result != 0 && errno == EINTR) {
        result = ::flock(descriptor, LOCK_EX);
    }
    return result;
}

}  // namespace

/// The store's lock, between processes, for as long as the object lives.
///
/// The lock belongs to the open file, so a child that was forked meanwhile would hold it beyond the death of this
/// process; heldLock_ lets the child close it first thing.
class DefaultsStoreEngine::FileLock {
public:
    FileLock(DefaultsStoreEngine& engine, std::string& fault) : engine_(engine) {
        do {
            open();
            if (!file_ || waitForLock(file_.get()) != 0) {
                fault = withSystemError("cannot lock it");
                return;
            }
            // If somebody deleted the lock file meanwhile, others lock another one.
        } while (!isStillAt(engine_.lockPath_, file_.get()));
        held_ = true;
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock() { close(); }

    bool isHeld() const { return held_; }

private:
    void open() {
        close();
        const std::scoped_lock locked(engine_.mutex_);
        file_ = openBesideStore(engine_.lockPath_, O_RDWR | O_CREAT);
        engine_.heldLock_ = file_.get();
    }
    void close() {
        const std::scoped_lock locked(engine_.mutex_);
        file_.close();
        engine_.heldLock_ = -1;
    }

    DefaultsStoreEngine& engine_;
    Descriptor file_;
    bool held_ = false;
};

DefaultsStoreEngine::DefaultsStoreEngine(std::string path)
    : path_(std::move(path)),
      lockPath_(path_ + ".lock"),
      generationPath_(path_.empty() ? "" : path_ + ".generation"),
      identifier_(lastIdentifier.fetch_add(1) + 1),
      generation_(generationPath_),
      forkHandler_({.beforeFork = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->beforeFork(); },
                    .inParent = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->inParent(); },
                    .inChild = [](void* self) { static_cast<DefaultsStoreEngine*>(self)->inChild(); }},
                   this) {
    Snapshot first;
    if (path_.empty()) {
        first.generation = generation_.value();
        nextLook_ = std::numeric_limits<std::int64_t>::max();
    }
    snapshot_ = std::make_shared<const Snapshot>(std::move(first));
}

const DefaultsStoreSnapshot* DefaultsStoreEngine::cachedSnapshot() const {
    const ThreadCache& cache = threadCache;
    const bool newest = cache.store == identifier_ && cache.version == version_.load(std::memory_order_acquire);
    return newest ? cache.snapshot : nullptr;
}

bool DefaultsStoreEngine::isCurrent(const Snapshot& snapshot) const {
    return generation_.value() == snapshot.generation && coarseNow() < nextLook_.load(std::memory_order_relaxed);
}

std::shared_ptr<const DefaultsStoreSnapshot> DefaultsStoreEngine::currentSnapshot() {
    Reports reports;
    std::shared_ptr<const Snapshot> snapshot;
    {
        const std::scoped_lock locked(mutex_);
        refresh(reports);
        snapshot = cacheForThread();
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
    snapshot_ = std::make_shared<const Snapshot>(std::move(snapshot));
    version_.fetch_add(1, std::memory_order_release);
}

void DefaultsStoreEngine::refresh(Reports& reports) {
    const std::int64_t now = coarseNow();
    const bool due = now >= nextLook_.load(std::memory_order_relaxed);
    if (due) {
        lookAtCounter();
        nextLook_.store(now + lookInterval, std::memory_order_relaxed);
    }
    // The counter comes first, then the file: what is read now is as new as this generation, or newer.
    const std::uint64_t counter = generation_.value();
    const std::uint64_t generation = DefaultsStoreGeneration::isSettled(counter) ? counter : Snapshot::never;
    if (!due && generation == snapshot_->generation && generation != Snapshot::never) {
        return;
    }
    if (!snapshot_->settled || DefaultsStoreIdentity::at(path_) != snapshot_->identity) {
        load(generation, reports);
    } else if (generation != snapshot_->generation) {
        Snapshot same = *snapshot_;
        same.generation = generation;
        publish(std::move(same));
    }
}

void DefaultsStoreEngine::lookAtCounter() {
    const bool usable = generation_.verify();
    if (usable && DefaultsStoreGeneration::isSettled(generation_.value())) {
        return;
    }
    std::string fault;
    if (!makeStoreFolder(path_, fault)) {
        return;
    }
    // If somebody holds the lock, a write is going on that will complete the change or, when it died, free the lock.
    if (const Descriptor lock = tryLock()) {
        if (!usable) {
            generation_.make();
        }
        generation_.heal();
    }
}

Descriptor DefaultsStoreEngine::tryLock() {
    Descriptor file = openBesideStore(lockPath_, O_RDWR | O_CREAT);
    if (file && (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 || !isStillAt(lockPath_, file.get()))) {
        file.close();
        errno = EWOULDBLOCK;
    }
    return file;
}

void DefaultsStoreEngine::load(std::uint64_t generation, Reports& reports) {
    DefaultsStoreContents contents = readWhole(generation);
    Snapshot loaded = *snapshot_;
    loaded.content = contentOf(contents, reports);
    loaded.generation = generation;
    loaded.identity = contents.identity;
    loaded.settled = contents.settled;
    const bool same = loaded.content == snapshot_->content && loaded.generation == snapshot_->generation &&
                      loaded.identity == snapshot_->identity && loaded.settled == snapshot_->settled;
    if (!same) {
        publish(std::move(loaded));
    }
}

DefaultsStoreContents DefaultsStoreEngine::readWhole(std::uint64_t& generation) const {
    // A file that was replaced after it was opened may be written over by the write after that, while it is read.
    constexpr int longestPatience = 100;
    DefaultsStoreContents contents = DefaultsStoreContents::read(path_);
    for (int tries = 0; tries < longestPatience; ++tries) {
        const std::uint64_t counter = generation_.value();
        const bool undisturbed = generation == Snapshot::never ? DefaultsStoreIdentity::at(path_) == contents.identity
                                                               : counter == generation;
        if (undisturbed) {
            break;
        }
        generation = DefaultsStoreGeneration::isSettled(counter) ? counter : Snapshot::never;
        contents = DefaultsStoreContents::read(path_);
    }
    return contents;
}

std::shared_ptr<const DefaultsStoreContent> DefaultsStoreEngine::contentOf(DefaultsStoreContents& contents,
                                                                           Reports& reports) {
    using State = DefaultsStoreContents::State;
    std::string fault = contents.fault;
    if (contents.state == State::complete) {
        if (contents.bytes == snapshot_->content->text && !contents.bytes.empty()) {
            return snapshot_->content;
        }
        if (const auto document = DefaultsStoreDocument::parse(contents.bytes, fault)) {
            return std::make_shared<const DefaultsStoreContent>(std::move(contents.bytes), *document);
        }
    }
    if (contents.state == State::complete || contents.state == State::tooLarge) {
        if (contents.young) {
            contents.settled = false;
            return snapshot_->content;
        }
        handleDamage(contents, fault, reports);
    } else if (contents.state == State::unreadable) {
        reportOnce(contents, fmt::format("Preferences: cannot use {}: {}.", path_, fault), reports);
    }
    const bool emptyAlready = snapshot_->content->text.empty();
    return emptyAlready ? snapshot_->content : std::make_shared<const DefaultsStoreContent>();
}

void DefaultsStoreEngine::handleDamage(DefaultsStoreContents& contents, const std::string& fault, Reports& reports) {
    const Descriptor lock = tryLock();
    if (!lock && errno == EWOULDBLOCK) {
        contents.settled = false;  // a writer is there and will see to it
        return;
    }
    // Without the lock a writer may have put a good file there since.
    if (lock && DefaultsStoreIdentity::at(path_) != contents.identity) {
        contents.settled = false;
        return;
    }
    std::string cause = lock ? "" : withSystemError("cannot lock it");
    const auto aside = lock ? setStoreFileAside(path_, cause) : std::nullopt;
    if (aside) {
        reports.push_back(fmt::format("Preferences: {} is damaged ({}). It is kept as {}.", path_, fault, *aside));
        contents.identity.reset();
        return;
    }
    reportOnce(contents, fmt::format("Preferences: {} is damaged ({}) and stays in place: {}.", path_, fault, cause),
               reports);
}

void DefaultsStoreEngine::reportOnce(const DefaultsStoreContents& contents, const std::string& line, Reports& reports) {
    if (contents.identity != reportedFile_ || line != reportedLine_) {
        reports.push_back(line);
        reportedFile_ = contents.identity;
        reportedLine_ = line;
    }
}

bool DefaultsStoreEngine::write(const std::function<bool(DefaultsStoreDocument&)>& change) {
    Reports reports;
    bool stored = false;
    {
        const std::scoped_lock writing(writeLock_);
        stored = path_.empty() ? changeInMemory(change) : changeFile(change, reports);
    }
    for (const std::string& line : reports) {
        report(line);
    }
    return stored;
}

bool DefaultsStoreEngine::changeInMemory(const std::function<bool(DefaultsStoreDocument&)>& change) {
    const std::scoped_lock locked(mutex_);
    std::string fault;
    auto document = DefaultsStoreDocument::parse(snapshot_->content->text, fault).value_or(DefaultsStoreDocument());
    if (change(document)) {
        Snapshot changed = *snapshot_;
        changed.content = std::make_shared<const DefaultsStoreContent>(document.text(), document);
        publish(std::move(changed));
    }
    return true;
}

bool DefaultsStoreEngine::changeFile(const std::function<bool(DefaultsStoreDocument&)>& change, Reports& reports) {
    const auto changed = [&](std::string& fault) {
        if (!makeStoreFolder(path_, fault)) {
            return false;
        }
        const FileLock lock(*this, fault);
        auto document = lock.isHeld() ? documentToChange(reports, fault) : std::nullopt;
        return document && (!change(*document) || replaceFile(document->text(), fault));
    };
    std::string fault;
    if (!changed(fault)) {
        reports.push_back(fmt::format("Preferences: cannot store a value in {}: {}.", path_, fault));
        return false;
    }
    return true;
}

std::optional<DefaultsStoreDocument> DefaultsStoreEngine::documentToChange(Reports& reports, std::string& fault) {
    using State = DefaultsStoreContents::State;
    constexpr int longestPatience = 100;  // a file that is written to for ever is no half-finished store
    for (int waits = 0;; ++waits) {
        const DefaultsStoreContents contents = DefaultsStoreContents::read(path_);
        fault = contents.fault;
        if (contents.state == State::missing) {
            return DefaultsStoreDocument();
        }
        if (contents.state == State::unreadable) {
            return std::nullopt;
        }
        if (contents.state == State::complete) {
            if (auto document = DefaultsStoreDocument::parse(contents.bytes, fault)) {
                return document;
            }
        }
        if (contents.young && waits < longestPatience) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        std::string cause;
        const auto aside = setStoreFileAside(path_, cause);
        if (!aside) {
            fault = fmt::format("it is damaged ({}) and stays in place: {}", fault, cause);
            return std::nullopt;
        }
        reports.push_back(fmt::format("Preferences: {} is damaged ({}). It is kept as {}.", path_, fault, *aside));
    }
}

bool DefaultsStoreEngine::replaceFile(const std::string& text, std::string& fault) {
    if (text.size() > DefaultsStoreDocument::maximumSize) {
        fault = fmt::format("{} bytes are more than a store may have", text.size());
        return false;
    }
    {
        const std::scoped_lock locked(mutex_);
        if (!generation_.verify()) {
            generation_.make();
        }
    }
    const auto renameAndPublish = [this](const std::function<bool()>& move) {
        DefaultsStoreChange change(generationPath_);
        const bool moved = change.begun() && move();
        const int cause = errno;
        change.complete();
        errno = cause;
        return moved;
    };
    return replaceStoreFile(path_, text, renameAndPublish, fault);
}

void DefaultsStoreEngine::registerDefault(std::string_view key, const DefaultsStore::Registered& value) {
    if (const Snapshot* cached = cachedSnapshot();
        cached != nullptr && isRegisteredAs(cached->registered->find(key), value)) {
        return;
    }
    const std::scoped_lock locked(mutex_);
    if (!isRegisteredAs(snapshot_->registered->find(key), value)) {
        auto registered = std::make_shared<DefaultsStoreIndex>(*snapshot_->registered);
        registered->set(key, DefaultsStoreValue::fromRegistered(value));
        Snapshot changed = *snapshot_;
        changed.registered = std::move(registered);
        publish(std::move(changed));
    }
    cacheForThread();
}

void DefaultsStoreEngine::lookAtFile() {
    if (!path_.empty()) {
        nextLook_.store(0, std::memory_order_relaxed);
    }
}

void DefaultsStoreEngine::setReportHandler(DefaultsStore::ReportHandler handler) {
    auto shared = handler ? std::make_shared<const DefaultsStore::ReportHandler>(std::move(handler)) : nullptr;
    const std::scoped_lock locked(handlerMutex_);
    handler_.swap(shared);
}

void DefaultsStoreEngine::report(const std::string& line) const {
    std::shared_ptr<const DefaultsStore::ReportHandler> handler;
    {
        const std::scoped_lock locked(handlerMutex_);
        handler = handler_;
    }
    if (handler) {
        (*handler)(line);
    } else {
        fmt::print(stderr, "{}\n", line);
    }
}

void DefaultsStoreEngine::beforeFork() {
    mutex_.lock();
    handlerMutex_.lock();
}

void DefaultsStoreEngine::inParent() {
    handlerMutex_.unlock();
    mutex_.unlock();
}

void DefaultsStoreEngine::inChild() {
    if (heldLock_ >= 0) {
        ::close(std::exchange(heldLock_, -1));
    }
    inParent();
}

}  // namespace velora
