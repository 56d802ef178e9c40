#include <atomic>
#include <cstddef>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

/// The lines that wait to be used again. The queue's thread gives them back one by one to a shared list; a
/// logging thread that has none left takes the whole list, so neither side needs a lock and no line is ever
/// seen by two threads.
class QueuedLinePool {
public:
    static QueuedLine* take() {
        if (own_.lines == nullptr) {
            if (own_.isGone) {
                return new QueuedLine;  // nobody would give the rest of the list back
            }
            own_.lines = returned_.exchange(nullptr, std::memory_order_acquire);
            if (own_.lines == nullptr) {
                return new QueuedLine;
            }
            arm();
        }
        QueuedLine* const line = own_.lines;
        own_.lines = line->next_;
        fetchEarly(own_.lines);
        return line;
    }

    static void giveBack(QueuedLine* line) noexcept {
        line->next_ = returned_.load(std::memory_order_relaxed);
        while (
            !returned_.compare_exchange_weak(line->next_, line, std::memory_order_release, std::memory_order_relaxed)) {
        }
    }

private:
    // Trivially destructible: may be read by static destructors too.
    struct Own {
        QueuedLine* lines;
        bool isArmed;
        bool isGone;
    };
    // A thread that ends gives its lines to the others.
    struct Disposer {
        ~Disposer() {
            own_.isGone = true;
            while (QueuedLine* const line = own_.lines) {
                own_.lines = line->next_;
                giveBack(line);
            }
        }
    };

    /// Has the processor fetch a line that the queue's thread used last, to be written to when it is needed. An
    /// atomic operation, such as handing over a line, waits until all that was written before has its memory.
    static void fetchEarly(const QueuedLine* line) noexcept {
        constexpr std::size_t cacheLine = 64;
        const char* const begin = reinterpret_cast<const char*>(line);
        for (std::size_t offset = 0; offset < 4 * cacheLine; offset += cacheLine) {
#if defined(__x86_64__)
            // What the compiler makes of the intent to write is a fetch to read.
            __asm__ volatile("prefetchw %0" : : "m"(begin[offset]));
#else
            __builtin_prefetch(begin + offset, 1);
#endif
        }
    }

    static void arm() {
        if (!own_.isArmed) {
            static thread_local const Disposer disposer;
            static_cast<void>(disposer);
            own_.isArmed = true;
        }
    }

    static inline std::atomic<QueuedLine*> returned_{nullptr};
    __attribute__((tls_model("initial-exec"))) static inline thread_local constinit Own own_{};
};

thread_local constinit int QueuedLine::Deferral::depth_ = 0;
thread_local constinit QueuedLine* QueuedLine::Deferral::first_ = nullptr;
thread_local constinit QueuedLine* QueuedLine::Deferral::last_ = nullptr;

void QueuedLine::Deferral::keep(QueuedLine& line) noexcept {
    line.next_ = nullptr;
    (first_ == nullptr ? first_ : last_->next_) = &line;
    last_ = &line;
}

void QueuedLine::Deferral::handOver() noexcept {
    QueuedLine* line = std::exchange(first_, nullptr);
    while (line != nullptr) {
        QueuedLine& each = *std::exchange(line, line->next_);
        if (const auto queue = each.destination_->logQueue()) {
            queue->async(each);
        } else {
            each.run();
        }
    }
}

void QueuedLine::takeOver(BaseQueuedDestination& destination, LogDetails& logDetails, std::string& message) {
    destination_ = &destination;
    level_ = logDetails.level;
    hasRecord_ = destination.mayFilterOrFormat();
    isShort_ = !hasRecord_ && message.size() <= text_.size();
    if (isShort_) {
        size_ = static_cast<std::uint16_t>(message.copy(text_.data(), text_.size()));
        return;
    }
    if (hasRecord_) {
        if (!record_) {
            record_ = std::make_unique<LogDetails>();
        }
        std::swap(*record_, logDetails);
    }
    message_.swap(message);
}

void QueuedLine::submit(DispatchQueue& queue, BaseQueuedDestination& destination, LogDetails& logDetails,
                        std::string& message) {
    QueuedLine* const line = QueuedLinePool::take();
    try {
        line->takeOver(destination, logDetails, message);
    } catch (...) {
        QueuedLinePool::giveBack(line);
        throw;
    }
    // A line that this thread holds back is not on the queue yet, where others could wait for it.
    const bool isDeferred = Deferral::isActive();
    if (isDeferred || !destination.isKeptByLogger()) {
        line->keptAlive_ = destination.shared_from_this();
    } else {
        destination.noteHandedOver();
    }
    if (isDeferred) {
        Deferral::keep(*line);
    } else {
        queue.async(*line);
    }
}

void QueuedLine::run() noexcept {
    output();
    if (hasRecord_ && !record_->userInfo.empty()) {
        record_->userInfo.clear();
    }
    if (keptAlive_) {
        keptAlive_.reset();
    } else {
        destination_->noteFinished();
    }
    if (isTooLargeToKeep()) {
        delete this;
    } else {
        QueuedLinePool::giveBack(this);
    }
}

void QueuedLine::output() noexcept {
    if (hasRecord_) {
        reportingExceptions([&] { destination_->outputNow(*record_, message_); });
    } else {
        destination_->writeNow(level_, isShort_ ? std::string_view(text_.data(), size_) : message_);
    }
}

bool QueuedLine::isTooLargeToKeep() const noexcept {
    constexpr std::size_t keptCapacity = 4'096;
    if (isShort_) {
        return false;
    }
    return message_.capacity() > keptCapacity || (hasRecord_ && record_->message.capacity() > keptCapacity);
}

}  // namespace velora
