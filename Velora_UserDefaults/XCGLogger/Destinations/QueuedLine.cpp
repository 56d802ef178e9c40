#include <atomic>
#include <cstddef>

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
        if (const auto queue = static_cast<BaseQueuedDestination&>(*each.destination_).logQueue()) {
            queue->async(each);
        } else {
            each.run();
        }
    }
}

void QueuedLine::submit(DispatchQueue& queue, std::shared_ptr<BaseDestination> destination, LogDetails& logDetails,
                        std::string& message) {
    QueuedLine* const line = QueuedLinePool::take();
    try {
        // All that may want for memory.
        line->logDetails_.functionName = logDetails.functionName;
        line->logDetails_.fileName = logDetails.fileName;
    } catch (...) {
        QueuedLinePool::giveBack(line);
        throw;
    }
    line->destination_ = std::move(destination);
    line->logDetails_.level = logDetails.level;
    line->logDetails_.date = logDetails.date;
    line->logDetails_.message.swap(logDetails.message);
    line->logDetails_.lineNumber = logDetails.lineNumber;
    line->logDetails_.userInfo.swap(logDetails.userInfo);
    line->message_.swap(message);
    if (Deferral::isActive()) {
        Deferral::keep(*line);
    } else {
        queue.async(*line);
    }
}

void QueuedLine::run() noexcept {
    constexpr std::size_t keptCapacity = 4'096;
    {
        const std::shared_ptr<BaseDestination> destination = std::move(destination_);
        reportingExceptions(
            [&] { static_cast<BaseQueuedDestination&>(*destination).outputNow(logDetails_, message_); });
    }
    if (logDetails_.message.capacity() > keptCapacity || message_.capacity() > keptCapacity) {
        delete this;
        return;
    }
    if (!logDetails_.userInfo.empty()) {
        logDetails_.userInfo.clear();
    }
    QueuedLinePool::giveBack(this);
}

}  // namespace velora
