#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/Platform/Reused.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TextWriter.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// Where a thread composes its lines.
class LineMemory {
public:
    /// Memory for `size` bytes, with anything in them.
    char* room(std::size_t size) {
        if (size > size_) {
            memory_ = std::make_unique_for_overwrite<char[]>(size);
            size_ = size;
        }
        return memory_.get();
    }

    /// The first `size` bytes as the line.
    std::string& line(std::size_t size) {
        line_.assign(memory_.get(), size);
        return line_;
    }

    /// Gives back the memory of an unusually long line.
    void shrink() noexcept {
        constexpr std::size_t keptSize = 16'384;
        if (size_ > keptSize || line_.capacity() > keptSize) {
            memory_ = nullptr;
            size_ = 0;
            std::string().swap(line_);
        }
    }

private:
    std::unique_ptr<char[]> memory_;
    std::size_t size_ = 0;
    std::string line_;
};

/// What the thread column shows.
std::string threadText() {
    std::string text;
    if (isMainThread()) {
        text = "main";
        return text;
    }
    if (!appendCurrentThreadName(text)) {
        const auto label = DispatchQueue::currentLabel();
        text = label && !label->empty() && isValidUTF8(*label) ? std::string(*label) : currentThreadIdentifierText();
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

/// The date column's text where it must be made.
[[gnu::cold, gnu::noinline]] std::string dateText(const DateFormatter* formatter, Date date) {
    std::string text;
    if (formatter != nullptr) {
        formatter->append(date, text);
    } else {
        static constinit Lazy<const DateFormatter> complete;
        complete.get([] { return new DateFormatter("yyyy-MM-dd HH:mm:ss Z", "en_US_POSIX", "UTC"); })
            .append(date, text);
    }
    return text;
}

}  // namespace

BaseDestination::BaseDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : MadeInTwoSteps(key), owner_(std::move(owner)), identifier_(std::move(identifier)) {}

BaseDestination::~BaseDestination() = default;

void BaseDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    owner_ = std::move(owner);
}

const XCGLogger* BaseDestination::knownOwner() const {
    return overridesNothing_ ? owner_.get() : owner().get();
}

const BaseDestination::Columns& BaseDestination::columns(Columns& asked) const {
    if (overridesNothing_) {
        return columns_;
    }
    asked = {.showLogIdentifier = showLogIdentifier(),
             .showFunctionName = showFunctionName(),
             .showThreadName = showThreadName(),
             .showFileName = showFileName(),
             .showLineNumber = showLineNumber(),
             .showLevel = showLevel(),
             .showDate = showDate()};
    return asked;
}

std::string_view BaseDestination::levelText(const XCGLogger& owner, Level level) const {
    if (const std::string* const own = (overridesNothing_ ? levelDescriptions_ : levelDescriptions()).find(level)) {
        return *own;
    }
    if (const std::string* const word = owner.levelDescriptions().find(level)) {
        return *word;
    }
    return description(level);
}

// Inlined, as all that is on the way of a line: after a system call returns are expensive.
[[gnu::always_inline]] inline void BaseDestination::outputLine(LogDetails& logDetails, const XCGLogger& owner,
                                                               const Columns& columns, std::string_view levelWord) {
    std::string_view identifier;
    if (columns.showLogIdentifier) {
        identifier = owner.identifier();
    }
    const std::string thread = columns.showThreadName ? threadText() : std::string();
    const std::string_view fileName = columns.showFileName ? textAfterLastSlash(logDetails.fileName) : "";
    const std::string_view functionName = columns.showFunctionName ? logDetails.functionName.view() : "";
    // With brackets, colon, spaces and the arrow, but without the date.
    constexpr std::size_t sizeOfSeparators = 24;
    const std::size_t size = levelWord.size() + identifier.size() + thread.size() + fileName.size() +
                             functionName.size() + logDetails.message.size() + TextWriter::maximumNumberSize +
                             sizeOfSeparators;

    const Reused<LineMemory> memory;
    char* begin = memory->room(DateFormatter::maximumCachedSize + size);
    TextWriter writer(begin);
    if (columns.showDate) {
        const DateFormatter* const formatter = owner.dateFormatter().get();
        const std::size_t dateSize = formatter != nullptr ? formatter->writeCached(logDetails.date, begin) : 0;
        if (dateSize > 0) {
            writer.skip(dateSize);
        } else {
            const std::string date = dateText(formatter, logDetails.date);
            begin = memory->room(date.size() + size);
            writer = TextWriter(begin);
            writer.append(date);
        }
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
    output(logDetails, memory->line(static_cast<std::size_t>(writer.position() - begin)));
    memory->shrink();
}

void BaseDestination::process(LogDetails& logDetails) {
    const XCGLogger* const owner = knownOwner();
    if (owner == nullptr) {
        return;
    }
    Columns asked;
    const Columns& columns = this->columns(asked);
    outputLine(logDetails, *owner, columns, columns.showLevel ? levelText(*owner, logDetails.level) : "");
}

void BaseDestination::processInternal(LogDetails& logDetails) {
    const XCGLogger* const owner = knownOwner();
    if (owner == nullptr) {
        return;
    }
    Columns asked;
    Columns columns = this->columns(asked);
    columns.showThreadName = false;
    columns.showFileName = false;
    columns.showLineNumber = false;
    columns.showFunctionName = false;
    outputLine(logDetails, *owner, columns, description(logDetails.level));
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
