#pragma once

#include <memory>
#include <vector>

namespace velora {

class DestinationProtocol;

/// The duration of one log call on its thread. Internal.
///
/// A message closure, a filter or a rotation's completion may remove a destination to which the running
/// call is still going to deliver. Such a destination is kept alive until the outermost call of the
/// thread ends, which spares every call from holding a reference to each destination.
class LogCallScope {
public:
    LogCallScope() noexcept { ++depth_; }
    LogCallScope(const LogCallScope&) = delete;
    LogCallScope& operator=(const LogCallScope&) = delete;
    ~LogCallScope() {
        if (--depth_ == 0 && kept_ != nullptr) {
            release();
        }
    }

    /// Keeps `destination` until the thread's log calls have ended; does nothing outside of one.
    static void keepUntilCallEnds(const std::shared_ptr<DestinationProtocol>& destination);

private:
    static void release() noexcept;

    __attribute__((tls_model("initial-exec"))) static thread_local constinit int depth_;
    __attribute__((tls_model(
        "initial-exec"))) static thread_local constinit std::vector<std::shared_ptr<DestinationProtocol>>* kept_;
};

}  // namespace velora
