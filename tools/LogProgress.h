#pragma once

#include <chrono>
#include <cstdint>

namespace velora {

/// A bar on the standard error that shows how far a scan is, if that is a terminal and the scan takes long enough for
/// somebody to wonder. Goes away with the object. One thread at a time.
class LogProgress {
public:
    /// `total` bytes are to be scanned; 0 if that is not known.
    explicit LogProgress(std::uint64_t total);
    LogProgress(const LogProgress&) = delete;
    LogProgress& operator=(const LogProgress&) = delete;
    ~LogProgress() { clear(); }

    /// `size` more bytes were scanned.
    void advance(std::uint64_t size);
    /// Takes the bar away, until the next `advance` some time from now.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    void draw();

    std::uint64_t total_;
    std::uint64_t done_ = 0;
    Clock::time_point nextDrawing_;
    bool isTerminal_;
    bool isShown_ = false;
};

}  // namespace velora
