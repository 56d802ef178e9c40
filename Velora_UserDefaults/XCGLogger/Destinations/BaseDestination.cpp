#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/Reused.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TextWriter.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// Memory for the calling thread's lines, which keeps what the one before left in it.
class LineBuffer {
public:
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() {
        constexpr std::size_t keptCapacity = 16'384;
        if (text_->capacity() > keptCapacity) {
            std::string().swap(*text_);
        }
    }
    std::string& text() const noexcept { return *text_; }

private:
    Reused<std::string> text_;
};

/// What the thread column shows.
std::string threadText() {
    std::string text;
    if (isMainThread()) {
        text = "main";
        return text;
    }
    const auto label = DispatchQueue::currentLabel();
    // The name that a queue gives its thread is as much of its label as the kernel takes: no name of its own.
    if (!appendCurrentThreadName(text) || (label && label->starts_with(text))) {
        if (label && !label->empty() && isValidUTF8(*label)) {
            text = *label;
        } else {
            text = currentThreadIdentifierText();
        }
    }
    return text;
}

void appendBracketed(std::string_view text, TextWriter& line) {
    line.append('[');
    line.append(text);
    line.append("] ");
}

void appendPlace(std::string_view fileName, bool showFileName, const std::int64_t* lineNumber, TextWriter& line) {
    if (!showFileName && lineNumber == nullptr) {
        return;
    }
    line.append('[');
    line.append(fileName);
    if (lineNumber != nullptr) {
        if (showFileName) {
            line.append(':');
        }
        line.append(*lineNumber);
    }
    line.append("] ");
}

}  // namespace

/// A date's text, which in nearly every line needs only its fraction of a second written.
class BaseDestination::DateColumn {
public:
    DateColumn(const XCGLogger& owner, Date date, bool isShown) {
        if (!isShown) {
            return;
        }
        const DateFormatter* const formatter =
            (owner.inheritsLayout_ ? owner.knownDateFormatter() : owner.dateFormatter()).get();
        if (formatter != nullptr) {
            cached_ = formatter->cachedText(date);
        }
        if (!cached_) {
            made_.emplace();
            (*made_)->clear();
            (formatter != nullptr ? *formatter : completeFormatter()).append(date, **made_);
        }
    }

    std::size_t size() const noexcept { return made_ ? (*made_)->size() : cached_.size(); }
    void write(char* out) const noexcept {
        if (made_) {
            std::memcpy(out, (*made_)->data(), (*made_)->size());
        } else {
            cached_.write(out);
        }
    }

private:
    struct Text : std::string {};

    /// For a logger whose own formatter is missing.
    static const DateFormatter& completeFormatter() {
        static const DateFormatter& complete = *new DateFormatter("yyyy-MM-dd HH:mm:ss Z", "en_US_POSIX", "UTC");
        return complete;
    }

    DateFormatter::CachedText cached_;
    std::optional<Reused<Text>> made_;
};

BaseDestination::BaseDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : MadeInTwoSteps(key), owner_(std::move(owner)), identifier_(std::move(identifier)) {}

BaseDestination::~BaseDestination() = default;

void BaseDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    owner_ = std::move(owner);
}

void BaseDestination::setOutputLevel(Level level) {
    outputLevel_.store(level, std::memory_order_relaxed);
    if (observer_ != nullptr) {
        observer_->learnThresholds();
    }
}

const XCGLogger* BaseDestination::knownOwner() const {
    return inheritsLayout_ ? owner_.get() : owner().get();
}

BaseDestination::Columns BaseDestination::columns() const {
    if (inheritsLayout_) {
        return columns_;
    }
    return {.showLogIdentifier = showLogIdentifier(),
            .showFunctionName = showFunctionName(),
            .showThreadName = showThreadName(),
            .showFileName = showFileName(),
            .showLineNumber = showLineNumber(),
            .showLevel = showLevel(),
            .showDate = showDate()};
}

std::string_view BaseDestination::levelText(const XCGLogger& owner, Level level) const {
    if (const std::string* const own = (inheritsLayout_ ? levelDescriptions_ : levelDescriptions()).find(level)) {
        return *own;
    }
    const LevelTexts& owners = owner.inheritsLayout_ ? owner.levelDescriptions_ : owner.levelDescriptions();
    if (const std::string* const word = owners.find(level)) {
        return *word;
    }
    return description(level);
}

void BaseDestination::process(LogDetails& logDetails) {
    const XCGLogger* const owner = knownOwner();
    if (owner == nullptr) {
        return;
    }
    const Columns columns = this->columns();
    outputLine(logDetails, *owner, columns, columns.showLevel ? levelText(*owner, logDetails.level) : "");
}

void BaseDestination::processInternal(LogDetails& logDetails) {
    const XCGLogger* const owner = knownOwner();
    if (owner == nullptr) {
        return;
    }
    Columns columns = this->columns();
    columns.showThreadName = false;
    columns.showFileName = false;
    columns.showLineNumber = false;
    columns.showFunctionName = false;
    outputLine(logDetails, *owner, columns, description(logDetails.level));
}

void BaseDestination::outputLine(LogDetails& logDetails, const XCGLogger& owner, const Columns& columns,
                                 std::string_view levelWord) {
    const DateColumn date(owner, logDetails.date, columns.showDate);
    std::string_view identifier;
    if (columns.showLogIdentifier) {
        identifier = owner.inheritsLayout_ ? owner.identifier_ : owner.identifier();
    }
    const std::string thread = columns.showThreadName ? threadText() : std::string();
    const std::string_view fileName = columns.showFileName ? lastPathComponent(logDetails.fileName) : "";
    const std::string_view functionName = columns.showFunctionName ? logDetails.functionName.view() : "";

    // Brackets, colon, spaces and the arrow.
    constexpr std::size_t sizeOfSeparators = 24;
    const LineBuffer buffer;
    std::string& line = buffer.text();
    line.resize(date.size() + levelWord.size() + identifier.size() + thread.size() + fileName.size() +
                functionName.size() + logDetails.message.size() + TextWriter::maximumNumberSize + sizeOfSeparators);
    TextWriter writer(line.data());
    if (columns.showDate) {
        date.write(writer.position());
        writer.skip(date.size());
        writer.append(' ');
    }
    if (columns.showLevel) {
        appendBracketed(levelWord, writer);
    }
    if (columns.showLogIdentifier) {
        appendBracketed(identifier, writer);
    }
    if (columns.showThreadName) {
        appendBracketed(thread, writer);
    }
    appendPlace(fileName, columns.showFileName, columns.showLineNumber ? &logDetails.lineNumber : nullptr, writer);
    if (columns.showFunctionName) {
        writer.append(functionName);
        writer.append(' ');
    }
    writer.append("> ");
    writer.append(logDetails.message);
    line.resize(static_cast<std::size_t>(writer.position() - line.data()));
    output(logDetails, line);
}

bool BaseDestination::isEnabledFor(Level level) const {
    return outputLevel() <= level;
}

void BaseDestination::output(LogDetails& /*logDetails*/, std::string& /*message*/) {
    fatalError("BaseDestination::output(logDetails, message) must be overridden by " + dynamicTypeName(*this));
}

std::string BaseDestination::debugDescription() const {
    std::string text = dynamicTypeName(*this) + ": " + identifier();
    text.append(" - Level: ").append(description(outputLevel()));
    const std::array<std::pair<std::string_view, bool>, 7> switches = {{{" showLogIdentifier: ", showLogIdentifier()},
                                                                        {" showFunctionName: ", showFunctionName()},
                                                                        {" showThreadName: ", showThreadName()},
                                                                        {" showLevel: ", showLevel()},
                                                                        {" showFileName: ", showFileName()},
                                                                        {" showLineNumber: ", showLineNumber()},
                                                                        {" showDate: ", showDate()}}};
    for (const auto& [label, isOn] : switches) {
        text.append(label).append(isOn ? "true" : "false");
    }
    return text;
}

}  // namespace velora
