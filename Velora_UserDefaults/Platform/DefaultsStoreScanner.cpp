#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStoreScanner.h>
#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {
namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isHexDigit(char character) {
    return isDigit(character) || (character >= 'a' && character <= 'f') || (character >= 'A' && character <= 'F');
}

char closingOf(char opening) {
    return opening == '{' ? '}' : ']';
}

}  // namespace

void DefaultsStoreScanner::skipBlanks() {
    while (next() == ' ' || next() == '\t' || next() == '\n' || next() == '\r') {
        ++position_;
    }
}

bool DefaultsStoreScanner::skipCharacter(char character) {
    if (atEnd() || json_[position_] != character) {
        return false;
    }
    ++position_;
    return true;
}

std::optional<std::string_view> DefaultsStoreScanner::string() {
    const std::size_t begin = position_;
    if (!skipString()) {
        return std::nullopt;
    }
    return json_.substr(begin, position_ - begin);
}

std::optional<std::string_view> DefaultsStoreScanner::value() {
    const std::size_t begin = position_;
    if (!skipValue()) {
        return std::nullopt;
    }
    return json_.substr(begin, position_ - begin);
}

bool DefaultsStoreScanner::skipString() {
    const std::size_t begin = position_;
    if (!skipCharacter('"')) {
        return false;
    }
    while (!atEnd() && json_[position_] != '"') {
        const auto character = static_cast<unsigned char>(json_[position_++]);
        if (character < ' ' || (character == '\\' && !skipEscape())) {
            return false;
        }
    }
    return skipCharacter('"') && isValidUTF8(json_.substr(begin, position_ - begin));
}

bool DefaultsStoreScanner::skipEscape() {
    if (atEnd()) {
        return false;
    }
    const char kind = json_[position_++];
    if (kind != 'u') {
        return kind != '\0' && std::string_view("\"\\/bfnrt").find(kind) != std::string_view::npos;
    }
    for (int digit = 0; digit < 4; ++digit, ++position_) {
        if (!isHexDigit(next())) {
            return false;
        }
    }
    return true;
}

bool DefaultsStoreScanner::skipDigits() {
    const std::size_t begin = position_;
    while (isDigit(next())) {
        ++position_;
    }
    return position_ != begin;
}

bool DefaultsStoreScanner::skipNumber() {
    skipCharacter('-');
    if (!skipCharacter('0') && !skipDigits()) {
        return false;
    }
    if (skipCharacter('.') && !skipDigits()) {
        return false;
    }
    if (skipCharacter('e') || skipCharacter('E')) {
        if (!skipCharacter('+')) {
            skipCharacter('-');
        }
        return skipDigits();
    }
    return true;
}

bool DefaultsStoreScanner::skipWord(std::string_view word) {
    if (!json_.substr(position_).starts_with(word)) {
        return false;
    }
    position_ += word.size();
    return true;
}

bool DefaultsStoreScanner::skipScalar() {
    switch (next()) {
        case '"':
            return skipString();
        case 't':
            return skipWord("true");
        case 'f':
            return skipWord("false");
        case 'n':
            return skipWord("null");
        default:
            return skipNumber();
    }
}

bool DefaultsStoreScanner::skipMemberName() {
    skipBlanks();
    if (!skipString()) {
        return false;
    }
    skipBlanks();
    return skipCharacter(':');
}

bool DefaultsStoreScanner::skipValue() {
    std::string open;  // the brackets that the present position is inside of
    do {
        // One value begins here, or one opening bracket of it.
        skipBlanks();
        bool complete = true;
        if (next() == '{' || next() == '[') {
            if (open.size() == maximumDepth) {
                return false;
            }
            open.push_back(next());
            ++position_;
            skipBlanks();
            complete = next() == closingOf(open.back());
        } else if (!skipScalar()) {
            return false;
        }
        // What follows a complete value: closing brackets, then a comma before the next one.
        while (complete && !open.empty()) {
            skipBlanks();
            if (skipCharacter(closingOf(open.back()))) {
                open.pop_back();
            } else if (skipCharacter(',')) {
                break;
            } else {
                return false;
            }
        }
        if (!open.empty() && open.back() == '{' && !skipMemberName()) {
            return false;
        }
    } while (!open.empty());
    return true;
}

}  // namespace velora
