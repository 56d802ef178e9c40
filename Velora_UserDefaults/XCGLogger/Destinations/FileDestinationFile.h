#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

/// The file of a `FileDestination`, which writes what waits for it when a batch of the queue ends, when the queue comes
/// to it, or when a thread lets go of the file for which others have left lines. Internal.
///
/// Everything needs the file to be held (`FileDestination::HeldFile`) but `writeLinesLeft` and `tellQueueIfWanted`.
class FileDestination::File final : public LogFile, public DispatchQueue::BatchEnd {
public:
    explicit File(FileDestination& destination) : destination_(destination) {}

    void writeAtEndOfBatch() {
        if (!keptAlive_) {
            keptAlive_ = destination_.shared_from_this();
        }
        DispatchQueue::atEndOfBatch(*this);
    }

    void batchEnded() noexcept override {
        const std::shared_ptr<BaseDestination> destination = std::exchange(keptAlive_, nullptr);
        reportingExceptions([this] {
            const HeldFile held(destination_);
            if (pendingBytes() >= destination_.bytesToHoldBack()) {
                writePending();
            }
        });
    }

    /// Leaves what is pending to the queue. Whoever holds this file, and no other before it, tells the queue, but only
    /// when it has let go of the file: the queue may be full, and wait for it.
    void leaveToQueue() noexcept {
        if (transferIn_ != forkGeneration()) {
            transferIn_ = forkGeneration();
            isTransferWanted_.store(true, std::memory_order_relaxed);
        }
    }

    void tellQueueIfWanted() {
        if (isTransferWanted_.load(std::memory_order_relaxed) && isTransferWanted_.exchange(false)) {
            transfer_.keptAlive = destination_.shared_from_this();
            if (const std::shared_ptr<DispatchQueue> queue = destination_.logQueue()) {
                queue->async(transfer_);
            } else {
                transfer_.run();
            }
        }
    }

    /// Writes the lines that other threads left, unless one of them holds the file now and so will write them.
    void writeLinesLeft() {
        while (hasLeft() && lock.try_lock()) {
            QueuedLine::Deferral::begin();
            for (const std::string& line : takeLeft()) {
                // The caller may be on its way out of an exception.
                reportingExceptions([&] { destination_.write(line); });
            }
            lock.unlock();
            QueuedLine::Deferral::end();
        }
    }

private:
    /// Writes on the queue what waits in a file.
    struct Transfer final : DispatchQueue::Task {
        explicit Transfer(File& own) : file(own) {}
        void run() noexcept override {
            const std::shared_ptr<BaseDestination> destination = std::exchange(keptAlive, nullptr);
            const HeldFile held(file.destination_);
            file.transferIn_.reset();
            file.writePending();
        }

        File& file;
        std::shared_ptr<BaseDestination> keptAlive;
    };

    FileDestination& destination_;
    std::shared_ptr<BaseDestination> keptAlive_;
    Transfer transfer_{*this};
    /// The fork generation of the process in which the transfer is on the queue, or about to be.
    std::optional<std::uint64_t> transferIn_;
    std::atomic<bool> isTransferWanted_ = false;
};

}  // namespace velora
