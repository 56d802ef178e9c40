#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONText.h>

namespace velora {

namespace {

/// What a composed line says that its record does not. Refers to the line.
struct ColumnsOfLine {
    std::optional<std::string_view> logger;
    std::optional<std::string_view> thread;
};

/// Takes the texts, one behind the other, off the end of `line` if they all are there; returns whether.
bool dropEnd(std::string_view& line, std::initializer_list<std::string_view> texts) {
    std::string_view rest = line;
    for (auto text = std::rbegin(texts); text != std::rend(texts); ++text) {
        if (!rest.ends_with(*text)) {
            return false;
        }
        rest.remove_suffix(text->size());
    }
    line = rest;
    return true;
}

/// The columns before the place: "… [level] [logger] [thread] ", in which date and words are anybody's.
std::string_view columnsBeforePlace(std::string_view line, const LogDetails& record) {
    dropEnd(line, {"> ", record.message});
    if (!record.functionName.view().empty()) {
        dropEnd(line, {record.functionName, " "});
    }
    const std::string number = std::to_string(record.lineNumber);
    const std::string_view name = textAfterLastSlash(record.fileName);
    dropEnd(line, {"[", name, ":", number, "] "}) || dropEnd(line, {"[", name, "] "}) ||
        dropEnd(line, {"[", number, "] "});
    return line;
}

ColumnsOfLine columnsOf(std::string_view line, const LogDetails& record) {
    const bool isAboutEngine = isInternal(record.userInfo);
    line = columnsBeforePlace(line, record);
    const std::size_t level = line.find('[');
    if (level == std::string_view::npos || !line.ends_with("] ")) {
        return {};
    }
    line.remove_suffix(2);
    constexpr std::string_view border = "] [";
    const std::size_t logger = line.find(border, level);
    if (logger == std::string_view::npos) {
        return {};
    }
    line.remove_prefix(logger + border.size());
    if (isAboutEngine) {
        return {.logger = line, .thread = std::nullopt};
    }
    // With one column only, nothing tells whether it is the logger's or the thread's.
    const std::size_t thread = line.find(border);
    if (thread == std::string_view::npos) {
        return {};
    }
    return {.logger = line.substr(0, thread), .thread = line.substr(thread + border.size())};
}

void appendMember(std::string& json, std::string_view name, std::string_view text) {
    json.append(",\"").append(name).append("\":");
    appendJSONText(json, text);
}

void appendMember(std::string& json, std::string_view name, const std::optional<std::string_view>& text) {
    if (text) {
        appendMember(json, name, *text);
    }
}

void appendPlace(std::string& json, const LogDetails& record) {
    if (!record.fileName.view().empty()) {
        appendMember(json, "file", textAfterLastSlash(record.fileName));
        json.append(",\"line\":");
        appendJSONValue(json, record.lineNumber);
    }
    if (!record.functionName.view().empty()) {
        appendMember(json, "function", record.functionName.view());
    }
}

}  // namespace

JSONLogFormatter::JSONLogFormatter(Making key) : MadeInTwoSteps(key) {}

JSONLogFormatter::~JSONLogFormatter() = default;

void JSONLogFormatter::setUp(BaseDestination& destination) {
    destination.setShowDate(true);
    destination.setShowLevel(true);
    destination.setShowLogIdentifier(true);
    destination.setShowThreadName(true);
    destination.setShowFileName(true);
    destination.setShowLineNumber(true);
    destination.setShowFunctionName(true);
    destination.setFormatters({{make<JSONLogFormatter>()}});
    if (auto* const file = dynamic_cast<FileDestination*>(&destination)) {
        file->setAppendMarker(std::nullopt);
    }
}

const std::string& JSONLogFormatter::format(LogDetails& logDetails, std::string& message) {
    constexpr std::size_t usualSizeOfRest = 256;
    const ColumnsOfLine columns = columnsOf(message, logDetails);
    std::string json;
    json.reserve(logDetails.message.size() + usualSizeOfRest);
    json.append("{\"date\":");
    appendJSONDate(json, logDetails.date);
    appendMember(json, "level", description(logDetails.level));
    appendMember(json, "logger", columns.logger);
    appendMember(json, "thread", columns.thread);
    appendPlace(json, logDetails);
    appendMember(json, "message", std::string_view(logDetails.message));
    if (!logDetails.userInfo.empty()) {
        json.append(",\"userInfo\":");
        appendJSONObject(json, logDetails.userInfo);
    }
    json += '}';
    message = std::move(json);
    return message;
}

std::string JSONLogFormatter::debugDescription() const {
    return dynamicTypeName(*this);
}

}  // namespace velora
