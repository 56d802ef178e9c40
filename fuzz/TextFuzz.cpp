// Questions about text, answered a second time by ICU over UTF-16 and by plain loops. Two texts are parted by the byte
// 0xFF, which no UTF-8 has.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TextWriter.h>

namespace velora::test {
namespace {

// ICU's macro narrows integers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
bool isUTF8(std::string_view text) {
    const char* const bytes = text.data();
    const auto size = static_cast<std::int32_t>(text.size());
    for (std::int32_t at = 0; at < size;) {
        UChar32 character = 0;
        U8_NEXT(bytes, at, size, character);
        if (character < 0) {
            return false;
        }
    }
    return true;
}
#pragma GCC diagnostic pop

icu::UnicodeString wide(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
}

std::size_t characterCount(std::string_view text) {
    static const auto iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        return std::unique_ptr<icu::BreakIterator>(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    }();
    const icu::UnicodeString characters = wide(text);
    iterator->setText(characters);
    std::size_t count = 0;
    while (iterator->next() != icu::BreakIterator::DONE) {
        ++count;
    }
    return count;
}

bool looksEqual(std::string_view left, std::string_view right) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFDInstance(status);
    const bool equal = normalizer->normalize(wide(left), status) == normalizer->normalize(wide(right), status);
    require(U_SUCCESS(status) != 0, "ICU can normalise text");
    return left == right || (isUTF8(left) && isUTF8(right) && equal);
}

std::string nameOf(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string extensionOf(const std::string& path) {
    const std::string name = nameOf(path);
    const std::size_t dot = name.rfind('.');
    return dot == 0 || dot == std::string::npos ? "" : name.substr(dot + 1);
}

void checkText(std::string_view text) {
    const std::string path(text);
    requireSame(isValidUTF8(text), isUTF8(text), "whether text is UTF-8");
    requireSame(userPerceivedCharacterCount(text), characterCount(text), "the number of characters");
    requireEqual(lastPathComponent(text), nameOf(path), "the last component");
    requireEqual(pathExtension(text), extensionOf(path), "the extension");
}

/// Writes the text in pieces; how long each is, the text itself says.
void checkWriter(std::string_view text) {
    constexpr char guard = '#';
    std::string memory(text.size() + 1, guard);
    TextWriter writer(memory.data());
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t length = std::min<std::size_t>(static_cast<unsigned char>(rest.front()) % 50U, rest.size());
        // In a block of its own, so that a byte read beyond its end is noticed.
        const std::string piece(rest.substr(0, length));
        if (length == 0) {
            writer.append(rest.front());
        } else {
            writer.append(std::string_view(std::vector<char>(piece.begin(), piece.end()).data(), length));
        }
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    requireSame(writer.position() - memory.data(), static_cast<std::ptrdiff_t>(text.size()), "where the writer is");
    requireEqual(memory, std::string(text) + guard, "what the writer wrote");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string_view left = input.until('\xFF');
    const std::string_view right = input.rest();
    velora::test::checkText(left);
    velora::test::checkText(right);
    velora::test::checkWriter(left);
    velora::test::requireSame(velora::canonicallyEqual(left, right), velora::test::looksEqual(left, right),
                              "whether two texts look equal");
    return 0;
}
