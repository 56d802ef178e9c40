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
        own_.lines = line->nextFree_;
        return line;
    }

    static void giveBack(QueuedLine* line) noexcept {
        line->nextFree_ = returned_.load(std::memory_order_relaxed);
        while (!returned_.compare_exchange_weak(line->nextFree_, line, std::memory_order_release,
                                                std::memory_order_relaxed)) {
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
                own_.lines = line->nextFree_;
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

void QueuedLine::submit(DispatchQueue& queue, std::shared_ptr<BaseDestination> destination, LogDetails& logDetails,
                        const std::string& message) {
    QueuedLine* const line = QueuedLinePool::take();
    line->destination_ = std::move(destination);
    line->logDetails_ = logDetails;
    line->message_ = message;
    queue.async(*line);
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
    logDetails_.userInfo.clear();
    QueuedLinePool::giveBack(this);
}

}  // namespace velora
