#include "LogScanner.h"

#include <cstring>

namespace velora {

void LogScanner::begin(const LogBlock& block, const LogLayout& layout) {
    text_ = block.text;
    layout_ = layout;
    lookAt(0);
    beginsInRecord_ = block.isContinued && !head_.beginsRecord;
    isCut_ = block.isCut;
}

/// Goes to the line that begins at `begin`.
void LogScanner::lookAt(std::size_t begin) {
    at_ = begin;
    if (at_ == text_.size()) {
        return;
    }
    next_ = beginOfNextLine(text_, at_);
    const bool hasFeed = text_[next_ - 1] == '\n';
    head_ = layout_.head(text_.substr(at_, next_ - at_ - (hasFeed ? 1 : 0)));
}

/// Goes to the line behind the record that holds the line at hand.
void LogScanner::goToEndOfRecord() {
    do {
        lookAt(next_);
    } while (at_ < text_.size() && !head_.beginsRecord);
}

/// Goes to the beginning of the next record that may be accepted; returns whether there is one.
bool LogScanner::goToNextCandidate() {
    if (at_ == text_.size() || needle_.empty()) {
        return at_ < text_.size();
    }
    const void* const found = ::memmem(text_.data() + at_, text_.size() - at_, needle_.data(), needle_.size());
    if (found == nullptr) {
        return false;
    }
    const std::size_t first = at_;
    const auto place = static_cast<std::size_t>(static_cast<const char*>(found) - text_.data());
    if (place < next_) {
        return true;
    }
    lookAt(beginOfLine(text_, place));
    while (at_ > first && !head_.beginsRecord) {
        lookAt(beginOfLine(text_, at_ - 1));
    }
    return true;
}

std::optional<LogRecord> LogScanner::next() {
    if (beginsInRecord_) {
        beginsInRecord_ = false;
        goToEndOfRecord();
        if (lastIsAccepted_) {
            return LogRecord{.text = text_.substr(0, at_), .head = {}, .isCut = isCut_ && at_ == text_.size()};
        }
    }
    while (goToNextCandidate()) {
        const std::size_t begin = at_;
        const LogHead head = head_;
        goToEndOfRecord();
        const LogRecord record{
            .text = text_.substr(begin, at_ - begin), .head = head, .isCut = isCut_ && at_ == text_.size()};
        lastIsAccepted_ = filter_->accepts(record.head, record.text);
        if (lastIsAccepted_) {
            return record;
        }
    }
    lastIsAccepted_ = lastIsAccepted_ && at_ == text_.size();
    at_ = text_.size();
    return std::nullopt;
}

}  // namespace velora
