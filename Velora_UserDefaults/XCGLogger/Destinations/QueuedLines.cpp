#include <algorithm>
#include <cstring>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLines.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

void ByteBuffer::grow(std::size_t size) {
    constexpr std::size_t smallest = 16'384;
    const std::size_t capacity = std::max({smallest, 2 * capacity_, size_ + size});
    auto bytes = std::make_unique_for_overwrite<char[]>(capacity);
    if (size_ > 0) {
        std::memcpy(bytes.get(), bytes_.get(), size_);
    }
    bytes_ = std::move(bytes);
    capacity_ = capacity;
}

void ByteBuffer::clear() noexcept {
    constexpr std::size_t keptCapacity = 2'097'152;
    size_ = 0;
    if (capacity_ > keptCapacity) {
        bytes_ = nullptr;
        capacity_ = 0;
    }
}

/// What stands before the text of a line. Behind the text follow the message, unless the line ends with it, and the
/// names that are not literals.
struct BaseQueuedDestination::QueuedLines::Line {
    std::size_t size;
    std::size_t textSize;
    std::size_t messageSize;
    std::string_view functionName;
    std::string_view fileName;
    std::int64_t lineNumber;
    Date date;
    const UserInfo* userInfo;
    const void* rotatingFile;
    Level level;
    bool endsWithMessage;

    std::string_view text() const noexcept { return {reinterpret_cast<const char*>(this + 1), textSize}; }
};

thread_local constinit const BaseQueuedDestination::QueuedLines* BaseQueuedDestination::QueuedLines::current_ = nullptr;
thread_local constinit const void* BaseQueuedDestination::QueuedLines::rotatingFile_ = nullptr;

BaseQueuedDestination::QueuedLines::~QueuedLines() {
    clear(waiting_);
    clear(batch_, position_);
}

void BaseQueuedDestination::QueuedLines::clear(ByteBuffer& lines, std::size_t from) noexcept {
    while (from < lines.size()) {
        const Line& line = *reinterpret_cast<const Line*>(lines.data() + from);
        delete line.userInfo;
        from += line.size;
    }
    lines.clear();
}

void BaseQueuedDestination::QueuedLines::append(DispatchQueue& queue, LogDetails& logDetails, std::string_view message,
                                                std::size_t capacity) {
    {
        std::unique_lock lock(mutex_);
        if (waiting_.size() >= capacity) [[unlikely]] {
            const bool mayBlock = !DispatchQueue::currentLabel() && rotatingFile_ == nullptr;
            ++blocked_;
            while (mayBlock && waiting_.size() >= capacity) {
                room_.wait(lock);
            }
            --blocked_;
        }
        add(logDetails, message);
    }
    submit(queue);
}

void BaseQueuedDestination::QueuedLines::add(LogDetails& logDetails, std::string_view message) {
    const bool endsWithMessage = message.ends_with(logDetails.message);
    const auto copied = [](const SourceText& text) { return text.isStatic() ? std::string_view() : text.view(); };
    const std::string_view ownMessage = endsWithMessage ? std::string_view() : logDetails.message;
    const std::string_view function = copied(logDetails.functionName);
    const std::string_view file = copied(logDetails.fileName);
    constexpr std::size_t alignment = alignof(Line);
    std::size_t size = sizeof(Line) + message.size() + ownMessage.size() + function.size() + file.size();
    size = (size + alignment - 1) / alignment * alignment;
    const UserInfo* const userInfo =
        logDetails.userInfo.empty() ? nullptr : new UserInfo(std::exchange(logDetails.userInfo, {}));
    char* place = nullptr;
    try {
        place = waiting_.extend(size);
    } catch (...) {
        delete userInfo;
        throw;
    }
    auto* const line = new (place) Line{.size = size,
                                        .textSize = message.size(),
                                        .messageSize = logDetails.message.size(),
                                        .functionName = logDetails.functionName.view(),
                                        .fileName = logDetails.fileName.view(),
                                        .lineNumber = logDetails.lineNumber,
                                        .date = logDetails.date,
                                        .userInfo = userInfo,
                                        .rotatingFile = rotatingFile_,
                                        .level = logDetails.level,
                                        .endsWithMessage = endsWithMessage};
    char* end = place + sizeof(Line);
    end += message.copy(end, message.size());
    end += ownMessage.copy(end, ownMessage.size());
    // Where they are now is known when they are read: the buffer moves as it grows.
    if (!function.empty()) {
        line->functionName = {nullptr, function.size()};
        end += function.copy(end, function.size());
    }
    if (!file.empty()) {
        line->fileName = {nullptr, file.size()};
        file.copy(end, file.size());
    }
}

void BaseQueuedDestination::QueuedLines::run() noexcept {
    {
        const std::scoped_lock lock(mutex_);
        batch_.swap(waiting_);
        if (blocked_ > 0) {
            room_.notify_all();
        }
    }
    position_ = 0;
    writeBatch();
}

void BaseQueuedDestination::QueuedLines::writeBatch() noexcept {
    const QueuedLines* const before = std::exchange(current_, this);
    while (position_ < batch_.size()) {
        const Line& line = *reinterpret_cast<const Line*>(batch_.data() + position_);
        position_ += line.size;
        const void* const fileBefore = std::exchange(rotatingFile_, line.rotatingFile);
        const std::unique_ptr<const UserInfo> userInfo(line.userInfo);
        reportingExceptions([&] { write(line); });
        rotatingFile_ = fileBefore;
    }
    batch_.clear();
    reportingExceptions([this] { destination_.finishBatch(); });
    current_ = before;
}

void BaseQueuedDestination::QueuedLines::write(const Line& line) {
    const std::string_view text = line.text();
    if (!destination_.mayFilterOrFormat()) {
        destination_.writeNow(line.level, text);
        return;
    }
    const char* behind = text.data() + text.size();
    const auto next = [&behind](std::size_t size) {
        return std::string_view(std::exchange(behind, behind + size), size);
    };
    LogDetails record{.level = line.level, .date = line.date};
    record.message = line.endsWithMessage ? text.substr(text.size() - line.messageSize) : next(line.messageSize);
    const auto name = [&next](std::string_view kept) {
        return kept.data() != nullptr ? SourceText::referringTo(kept) : SourceText(next(kept.size()));
    };
    record.functionName = name(line.functionName);
    record.fileName = name(line.fileName);
    record.lineNumber = line.lineNumber;
    if (line.userInfo != nullptr) {
        record.userInfo = *line.userInfo;
    }
    std::string message(text);
    destination_.outputNow(record, message);
}

/// Pending lines are the parent's. Called with the mutex held.
void BaseQueuedDestination::QueuedLines::resetInChild() noexcept {
    clear(waiting_);
    clear(batch_, position_);
    position_ = 0;
    blocked_ = 0;
    std::construct_at(&room_);
    mutex_.unlock();
}

}  // namespace velora
