#pragma once

#include <memory>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// One composed line on its way through a queue, with its record and its destination. Internal.
///
/// Lines are taken from a pool and go back to it with the memory of their texts, so that in a steady
/// stream handing over a line allocates nothing.
class QueuedLine final : public DispatchQueue::Task {
public:
    /// Hands a copy of the line to the destination's queue. Called by the logging thread.
    static void submit(DispatchQueue& queue, std::shared_ptr<BaseDestination> destination, LogDetails& logDetails,
                       const std::string& message);

    void run() noexcept override;

private:
    friend class QueuedLinePool;

    std::shared_ptr<BaseDestination> destination_;
    LogDetails logDetails_;
    std::string message_;
    QueuedLine* nextFree_ = nullptr;
};

}  // namespace velora
