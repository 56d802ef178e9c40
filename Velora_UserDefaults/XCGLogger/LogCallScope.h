#pragma once

#include <memory>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>

namespace velora {

class DestinationProtocol;

/// The duration of one log call on its thread. Internal.
///
/// A message closure, a filter or a rotation's completion may remove a destination to which the running
/// call is still going to deliver. Such a destination is kept alive until the outermost call of the
/// thread ends, which spares every call from holding a reference to each destination.
class LogCallScope {
public:
    LogCallScope() noexcept : outerDate_(date_) { ++depth_; }
    LogCallScope(const LogCallScope&) = delete;
    LogCallScope& operator=(const LogCallScope&) = delete;
    ~LogCallScope() {
        date_ = outerDate_;
        if (--depth_ == 0 && kept_ != nullptr) {
            release();
        }
    }

    /// Tells the date of the running call's record, when it has one.
    static void setDate(Date date) noexcept { date_ = date; }
    /// That date, of the innermost call that has one; the beginning of 1970 outside of any. It says what time it
    /// is without asking the clock once more.
    static Date date() noexcept { return date_; }

    /// Keeps `destination` until the thread's log calls have ended; does nothing outside of one.
    static void keepUntilCallEnds(const std::shared_ptr<DestinationProtocol>& destination);

private:
    static void release() noexcept;

    Date outerDate_;

    __attribute__((tls_model("initial-exec"))) static thread_local constinit Date date_;
    __attribute__((tls_model("initial-exec"))) static thread_local constinit int depth_;
    __attribute__((tls_model(
        "initial-exec"))) static thread_local constinit std::vector<std::shared_ptr<DestinationProtocol>>* kept_;
};

}  // namespace velora
