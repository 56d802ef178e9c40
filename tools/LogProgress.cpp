#include "LogProgress.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>
#include <unistd.h>

namespace velora {

namespace {

constexpr std::chrono::milliseconds beforeFirst{400};
constexpr std::chrono::milliseconds betweenTwo{100};

void writeToErrors(std::string_view text) {
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

LogProgress::LogProgress(std::uint64_t total)
    : total_(total), nextDrawing_(Clock::now() + beforeFirst), isTerminal_(::isatty(STDERR_FILENO) == 1) {}

void LogProgress::advance(std::uint64_t size) {
    done_ += size;
    if (isTerminal_ && Clock::now() >= nextDrawing_) {
        draw();
    }
}

void LogProgress::draw() {
    constexpr std::uint64_t width = 30;
    constexpr std::uint64_t megabyte = 1'000'000;
    nextDrawing_ = Clock::now() + betweenTwo;
    isShown_ = true;
    if (total_ == 0) {
        writeToErrors(fmt::format("\r\x1b[K{} MB", done_ / megabyte));
        return;
    }
    const std::uint64_t done = std::min(done_, total_);
    const auto filled = static_cast<std::size_t>(done * width / total_);
    writeToErrors(fmt::format("\r\x1b[K[{:.<{}}] {:3} %  {} of {} MB", std::string(filled, '#'), width,
                              done * 100 / total_, done / megabyte, total_ / megabyte));
}

void LogProgress::clear() {
    if (isShown_) {
        writeToErrors("\r\x1b[K");
        isShown_ = false;
        nextDrawing_ = Clock::now() + betweenTwo;
    }
}

}  // namespace velora
