#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unicode/brkiter.h>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/stringpiece.h>
#include <unicode/utext.h>

#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {
namespace {

using Word = std::uint64_t;
constexpr Word highBits = 0x8080808080808080U;
constexpr std::size_t largestForICU = std::numeric_limits<std::int32_t>::max();

Word wordAt(const char* bytes) {
    Word word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

/// How many bytes at the start of `text` are known to be ASCII, found a word at a time: the whole
/// text, or up to the word that holds the first byte that is not.
std::size_t asciiPrefix(std::string_view text) {
    const char* const bytes = text.data();
    const std::size_t size = text.size();
    std::size_t at = 0;
    while (size - at >= 2 * sizeof(Word) &&
           ((wordAt(bytes + at) | wordAt(bytes + at + sizeof(Word))) & highBits) == 0) {
        at += 2 * sizeof(Word);
    }
    while (size - at >= sizeof(Word)) {
        if ((wordAt(bytes + at) & highBits) != 0) {
            return at;
        }
        at += sizeof(Word);
    }
    while (at < size && static_cast<unsigned char>(bytes[at]) < 0x80) {
        ++at;
    }
    return at;
}

bool isASCII(std::string_view text) {
    return asciiPrefix(text) == text.size();
}

bool isBetween(unsigned char byte, unsigned char first, unsigned char last) {
    return byte >= first && byte <= last;
}

/// The length of the well-formed sequence that `text`, which is not empty, starts with; 0 if it
/// starts with none. The bounds of the second byte are those of table 3-7 of the Unicode Standard.
std::size_t sequenceLength(std::string_view text) {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto continues = [&](std::size_t i) { return isBetween(byte(i), 0x80, 0xBF); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        return 1;
    }
    if (isBetween(lead, 0xC2, 0xDF)) {
        return text.size() >= 2 && continues(1) ? 2 : 0;
    }
    if (isBetween(lead, 0xE0, 0xEF)) {
        const unsigned char first = lead == 0xE0 ? 0xA0 : 0x80;
        const unsigned char last = lead == 0xED ? 0x9F : 0xBF;
        return text.size() >= 3 && isBetween(byte(1), first, last) && continues(2) ? 3 : 0;
    }
    if (isBetween(lead, 0xF0, 0xF4)) {
        const unsigned char first = lead == 0xF0 ? 0x90 : 0x80;
        const unsigned char last = lead == 0xF4 ? 0x8F : 0xBF;
        return text.size() >= 4 && isBetween(byte(1), first, last) && continues(2) && continues(3) ? 4 : 0;
    }
    return 0;
}

std::unique_ptr<icu::BreakIterator> makeCharacterIterator() {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> iterator(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    return U_SUCCESS(status) ? std::move(iterator) : nullptr;
}

// Plain values outlive the thread's destructors, so that late callers can see that these have run.
constinit thread_local icu::BreakIterator* threadIterator = nullptr;
constinit thread_local bool threadIteratorGone = false;

struct ThreadIteratorOwner {
    ThreadIteratorOwner() { threadIterator = makeCharacterIterator().release(); }
    ThreadIteratorOwner(const ThreadIteratorOwner&) = delete;
    ThreadIteratorOwner& operator=(const ThreadIteratorOwner&) = delete;
    ~ThreadIteratorOwner() {
        delete threadIterator;
        threadIterator = nullptr;
        threadIteratorGone = true;
    }
};

std::size_t countCodePoints(std::string_view utf8) {
    const auto starts = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), starts));
}

std::size_t countClusters(std::string_view utf8, icu::BreakIterator& iterator) {
    UErrorCode status = U_ZERO_ERROR;
    UText text = UTEXT_INITIALIZER;
    utext_openUTF8(&text, utf8.data(), static_cast<std::int64_t>(utf8.size()), &status);
    iterator.setText(&text, status);
    std::size_t count = 0;
    if (U_SUCCESS(status)) {
        while (iterator.next() != icu::BreakIterator::DONE) {
            ++count;
        }
    }
    utext_close(&text);
    return U_SUCCESS(status) ? count : countCodePoints(utf8);
}

std::size_t countClusters(std::string_view utf8) {
    if (threadIteratorGone) {
        const std::unique_ptr<icu::BreakIterator> iterator = makeCharacterIterator();
        return iterator != nullptr ? countClusters(utf8, *iterator) : countCodePoints(utf8);
    }
    static thread_local const ThreadIteratorOwner owner;
    return threadIterator != nullptr ? countClusters(utf8, *threadIterator) : countCodePoints(utf8);
}

std::size_t countLineEndPairs(std::string_view ascii) {
    std::size_t count = 0;
    for (std::size_t at = ascii.find("\r\n"); at != std::string_view::npos; at = ascii.find("\r\n", at + 2)) {
        ++count;
    }
    return count;
}

/// `utf8` in normalisation form C; nothing where ICU cannot tell.
std::optional<std::string> composed(std::string_view utf8) {
    if (utf8.size() > largestForICU || !isValidUTF8(utf8)) {
        return std::nullopt;
    }
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* normalizer = icu::Normalizer2::getNFCInstance(status);
    if (U_FAILURE(status)) {
        return std::nullopt;
    }
    std::string result;
    icu::StringByteSink<std::string> sink(&result);
    const icu::StringPiece piece(utf8.data(), static_cast<std::int32_t>(utf8.size()));
    normalizer->normalizeUTF8(0, piece, sink, nullptr, status);
    return U_SUCCESS(status) ? std::optional(std::move(result)) : std::nullopt;
}

}  // namespace

std::string_view lastPathComponent(std::string_view path) {
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string_view::npos) {
        return path.substr(0, 1);
    }
    return textAfterLastSlash(path.substr(0, last + 1));
}

std::string_view textAfterLastSlash(std::string_view path) {
    const void* const slash = path.empty() ? nullptr : ::memrchr(path.data(), '/', path.size());
    return slash == nullptr ? path
                            : path.substr(static_cast<std::size_t>(static_cast<const char*>(slash) - path.data()) + 1);
}

std::string_view pathExtension(std::string_view pathOrName) {
    const std::string_view name = lastPathComponent(pathOrName);
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view{} : name.substr(dot + 1);
}

std::size_t userPerceivedCharacterCount(std::string_view utf8) {
    if (isASCII(utf8)) {
        return utf8.size() - countLineEndPairs(utf8);
    }
    return utf8.size() > largestForICU ? countCodePoints(utf8) : countClusters(utf8);
}

bool canonicallyEqual(std::string_view left, std::string_view right) {
    if (left == right) {
        return true;
    }
    if (isASCII(left) && isASCII(right)) {
        return false;
    }
    const std::optional<std::string> composedLeft = composed(left);
    return composedLeft.has_value() && composedLeft == composed(right);
}

bool isValidUTF8(std::string_view text) {
    while (true) {
        text.remove_prefix(asciiPrefix(text));
        if (text.empty()) {
            return true;
        }
        // Up to a word of sequences before ASCII is looked for again.
        for (int i = 0; i < 8 && !text.empty(); ++i) {
            const std::size_t length = sequenceLength(text);
            if (length == 0) {
                return false;
            }
            text.remove_prefix(length);
        }
    }
}

}  // namespace velora
