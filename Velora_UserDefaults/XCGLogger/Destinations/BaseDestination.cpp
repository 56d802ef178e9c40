#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/Reused.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// The buffer that the calling thread's lines are composed in.
class LineBuffer {
public:
    LineBuffer() { text_->clear(); }
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

void appendNumber(std::int64_t number, std::string& line) {
    std::array<char, 24> digits{};
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    line.append(digits.data(), end);
}

void appendBracketed(std::string_view text, std::string& line) {
    line += '[';
    line += text;
    line.append("] ", 2);
}

void appendDate(const XCGLogger& owner, Date date, std::string& line) {
    if (const auto& formatter = owner.dateFormatter()) {
        formatter->append(date, line);
    } else {
        static const DateFormatter& complete = *new DateFormatter("yyyy-MM-dd HH:mm:ss Z", "en_US_POSIX", "UTC");
        complete.append(date, line);
    }
    line += ' ';
}

std::string_view levelText(const BaseDestination& destination, const XCGLogger& owner, Level level) {
    if (const std::string* const own = destination.levelDescriptions().find(level)) {
        return *own;
    }
    if (const std::string* const owners = owner.levelDescriptions().find(level)) {
        return *owners;
    }
    return description(level);
}

void appendThread(std::string& line) {
    if (isMainThread()) {
        appendBracketed("main", line);
        return;
    }
    const auto label = DispatchQueue::currentLabel();
    line += '[';
    const std::size_t nameStart = line.size();
    // The name that a queue gives its thread is as much of its label as the kernel takes: no name of its own.
    if (!appendCurrentThreadName(line) || (label && label->starts_with(std::string_view(line).substr(nameStart)))) {
        line.resize(nameStart);
        if (label && !label->empty() && isValidUTF8(*label)) {
            line += *label;
        } else {
            line += currentThreadIdentifierText();
        }
    }
    line.append("] ", 2);
}

void appendPlace(const BaseDestination& destination, const LogDetails& logDetails, std::string& line) {
    const bool showLineNumber = destination.showLineNumber();
    if (destination.showFileName()) {
        line += '[';
        line += lastPathComponent(logDetails.fileName);
        if (showLineNumber) {
            line += ':';
            appendNumber(logDetails.lineNumber, line);
        }
        line.append("] ", 2);
    } else if (showLineNumber) {
        line += '[';
        appendNumber(logDetails.lineNumber, line);
        line.append("] ", 2);
    }
}

}  // namespace

BaseDestination::BaseDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : MadeInTwoSteps(key), owner_(std::move(owner)), identifier_(std::move(identifier)) {}

BaseDestination::~BaseDestination() = default;

void BaseDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    owner_ = std::move(owner);
}

void BaseDestination::process(LogDetails& logDetails) {
    const XCGLogger* const owner = this->owner().get();
    if (owner == nullptr) {
        return;
    }
    const LineBuffer buffer;
    std::string& line = buffer.text();
    if (showDate()) {
        appendDate(*owner, logDetails.date, line);
    }
    if (showLevel()) {
        appendBracketed(levelText(*this, *owner, logDetails.level), line);
    }
    if (showLogIdentifier()) {
        appendBracketed(owner->identifier(), line);
    }
    if (showThreadName()) {
        appendThread(line);
    }
    appendPlace(*this, logDetails, line);
    if (showFunctionName()) {
        line += logDetails.functionName;
        line += ' ';
    }
    line.append("> ", 2);
    line += logDetails.message;
    output(logDetails, line);
}

void BaseDestination::processInternal(LogDetails& logDetails) {
    const XCGLogger* const owner = this->owner().get();
    if (owner == nullptr) {
        return;
    }
    const LineBuffer buffer;
    std::string& line = buffer.text();
    if (showDate()) {
        appendDate(*owner, logDetails.date, line);
    }
    if (showLevel()) {
        appendBracketed(description(logDetails.level), line);
    }
    if (showLogIdentifier()) {
        appendBracketed(owner->identifier(), line);
    }
    line.append("> ", 2);
    line += logDetails.message;
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
