#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string_view>
#include <typeinfo>
#include <unicode/fpositer.h>
#include <unicode/resbund.h>
#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/LocalTime.h>
#include <Velora_UserDefaults/Platform/TextWriter.h>

namespace velora {
namespace {

constexpr std::size_t digitsOfNanoseconds = 9;
constexpr std::int64_t nanosecondsInSecond = 1'000'000'000;
// The seconds at both ends are cut off by the reach of `Date`.
constexpr std::int64_t firstWholeSecond = Date::min().time_since_epoch().count() / nanosecondsInSecond;
constexpr std::int64_t lastSecond = Date::max().time_since_epoch().count() / nanosecondsInSecond;

/// A date as its second, rounded down, and the nanoseconds after it.
struct SplitDate {
    explicit SplitDate(Date date) {
        const std::int64_t count = date.time_since_epoch().count();
        const std::int64_t rest = count % nanosecondsInSecond;
        second = count / nanosecondsInSecond - (rest < 0 ? 1 : 0);
        nanoseconds = static_cast<std::uint32_t>(rest < 0 ? rest + nanosecondsInSecond : rest);
    }
    std::int64_t second;
    std::uint32_t nanoseconds;
};

/// The digits of a second's fraction inside a text: where they start and how many they are.
struct FractionRun {
    std::size_t offset;
    std::size_t digitCount;
};

struct Rendering {
    std::string text;
    std::vector<FractionRun> fractions;
    bool understood = false;
};

/// The text of one second by one formatter, its fraction written as zeros.
struct CachedSecond {
    static constexpr std::size_t capacity = DateFormatter::maximumCachedSize;

    std::uint64_t formatter;
    std::int64_t start;
    std::uint32_t length;
    std::uint32_t fractionOffset;
    std::uint32_t fractionDigits;
    std::array<char, capacity> text;

    /// Modulo 2^64, so above any second's length if `date` is earlier. Holds for whole seconds
    /// only: from the end of a cut off one, the count goes on at the other end of time.
    [[nodiscard]] std::uint64_t nanosecondsInto(Date date) const {
        return static_cast<std::uint64_t>(date.time_since_epoch().count()) - static_cast<std::uint64_t>(start);
    }
    [[nodiscard]] bool holds(std::uint64_t number, Date date) const {
        return formatter == number && nanosecondsInto(date) < static_cast<std::uint64_t>(nanosecondsInSecond);
    }
};

/// Several, so that dates which alternate between seconds, or formatters which alternate on one
/// thread, do not push each other out.
struct Cache {
    std::array<CachedSecond, 4> seconds;
    std::size_t nextVictim;

    [[nodiscard]] const CachedSecond* find(std::uint64_t formatter, Date date) const {
        for (const CachedSecond& entry : seconds) {
            if (entry.holds(formatter, date)) {
                return &entry;
            }
        }
        return nullptr;
    }
    CachedSecond& victim() {
        nextVictim = (nextVictim + 1) % seconds.size();
        return seconds[nextVictim];
    }
};

// Neither constructed nor destroyed: there before the thread's first formatting and after its last
// destructor. Entries name formatters by numbers never used again (0 is none), not by addresses.
constinit thread_local Cache threadCache{};

/// Where the calling thread's cache is. Asking for that each time takes a call; this is one load. It takes
/// eight bytes of the little room that the system has for such variables, the cache itself is too large.
__attribute__((tls_model("initial-exec"))) constinit thread_local Cache* threadCacheAddress = nullptr;

[[gnu::noinline]] Cache& findThreadCache() {
    threadCacheAddress = &threadCache;
    return threadCache;
}

Cache& cacheOfThread() {
    return threadCacheAddress != nullptr ? *threadCacheAddress : findThreadCache();
}

std::uint64_t nextFormatterNumber() {
    static constinit std::atomic<std::uint64_t> last = 0;
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// What a pattern asks for below the second.
struct SubSecondFields {
    std::size_t fractionRuns = 0;
    bool millisecondsInDay = false;
};

SubSecondFields subSecondFields(std::string_view pattern) {
    SubSecondFields fields;
    bool quoted = false;
    char previous = '\0';
    for (const char character : pattern) {
        if (character == '\'') {
            quoted = !quoted;
        } else if (!quoted) {
            fields.fractionRuns += character == 'S' && previous != 'S' ? 1 : 0;
            fields.millisecondsInDay = fields.millisecondsInDay || character == 'A';
        }
        previous = character;
    }
    return fields;
}

/// The first `count` of the nine digits of `nanoseconds`.
std::uint32_t firstDigits(std::uint32_t nanoseconds, std::size_t count) {
    for (std::size_t i = count; i < digitsOfNanoseconds; ++i) {
        nanoseconds /= 10;
    }
    return nanoseconds;
}

std::string_view environmentValue(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? std::string_view{} : std::string_view(value);
}

/// The locale that the environment chooses for dates, in POSIX's order (locale(7)).
std::string_view environmentLocale() {
    for (const char* name : {"LC_ALL", "LC_TIME", "LANG"}) {
        if (const std::string_view value = environmentValue(name); !value.empty()) {
            return value;
        }
    }
    return "C";
}

/// The ICU identifier for a POSIX locale name: "sr_RS.UTF-8@latin" is "sr_Latn_RS".
std::string localeIdentifierFromPOSIX(std::string_view name) {
    const std::string_view modifier = name.substr(std::min(name.find('@'), name.size()));
    name = name.substr(0, name.find_first_of(".@"));
    if (name == "C" || name == "POSIX") {
        return "en_US_POSIX";
    }
    std::string identifier(name);
    const std::size_t endOfLanguage = std::min(identifier.find('_'), identifier.size());
    if (modifier == "@latin") {
        identifier.insert(endOfLanguage, "_Latn");
    } else if (modifier == "@cyrillic") {
        identifier.insert(endOfLanguage, "_Cyrl");
    }
    return identifier;
}

/// Whether ICU has texts for the locale or its language. Where it has none, it would take those of the process's own
/// locale.
bool isKnown(const icu::Locale& locale) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::ResourceBundle texts(static_cast<const char*>(nullptr), locale, status);
    return U_SUCCESS(status) && status != U_USING_DEFAULT_WARNING;
}

icu::Locale makeLocale(const std::string& identifier) {
    const std::string name = identifier.empty() ? localeIdentifierFromPOSIX(environmentLocale()) : identifier;
    icu::Locale locale(name.c_str());
    return locale.isBogus() || !isKnown(locale) ? icu::Locale::getRoot() : locale;
}

std::unique_ptr<icu::TimeZone> makeTimeZone(const std::string& identifier) {
    return std::unique_ptr<icu::TimeZone>(
        identifier.empty() ? icu::TimeZone::detectHostTimeZone()
                           : icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(identifier)));
}

/// The zone of one instant: what the C library alone knows has no other form in ICU.
std::unique_ptr<icu::TimeZone> makeTimeZone(const std::string& identifier, const LocalTime& local) {
    constexpr std::int32_t millisecondsInSecond = 1000;
    return std::make_unique<icu::SimpleTimeZone>(local.offset * millisecondsInSecond,
                                                 icu::UnicodeString::fromUTF8(identifier));
}

std::unique_ptr<icu::SimpleDateFormat> makeFormat(const std::string& pattern, const icu::Locale& locale,
                                                  const icu::TimeZone& zone) {
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString::fromUTF8(pattern), locale, status);
    if (U_FAILURE(status)) {
        return nullptr;
    }
    format->setTimeZone(zone);
    return format;
}

/// The ICU object that formats. A thread takes it out to use it, because ICU does not promise that
/// one format may be used by several threads at once, and one that finds it taken makes a copy: no
/// thread ever waits, and a process forked meanwhile finds no lock held by a thread it does not have.
class SharedFormat {
public:
    explicit SharedFormat(std::unique_ptr<const icu::SimpleDateFormat> prototype) : prototype_(std::move(prototype)) {}
    SharedFormat(const SharedFormat&) = delete;
    SharedFormat& operator=(const SharedFormat&) = delete;
    ~SharedFormat() { delete spare_.load(std::memory_order_acquire); }

    /// Nothing if ICU could not make it.
    std::unique_ptr<icu::SimpleDateFormat> take() {
        if (icu::SimpleDateFormat* const spare = spare_.exchange(nullptr, std::memory_order_acq_rel)) {
            return std::unique_ptr<icu::SimpleDateFormat>(spare);
        }
        return std::unique_ptr<icu::SimpleDateFormat>(prototype_ == nullptr ? nullptr : prototype_->clone());
    }
    void giveBack(std::unique_ptr<icu::SimpleDateFormat> format) {
        delete spare_.exchange(format.release(), std::memory_order_acq_rel);
    }

private:
    std::unique_ptr<const icu::SimpleDateFormat> prototype_;
    std::atomic<icu::SimpleDateFormat*> spare_ = nullptr;
};

/// Detecting the system's time zone fills buffers of ICU's that nothing guards.
constinit std::mutex making;

}  // namespace

/// A formatter's settings with the ICU object that implements them.
class __attribute__((visibility("hidden"))) DateFormatter::Engine {
public:
    Engine(std::string pattern, const std::string& localeIdentifier, const std::string& timeZoneIdentifier);

    void append(Date date, std::string& out) const;

    [[nodiscard]] const std::string& pattern() const { return pattern_; }
    [[nodiscard]] const std::string& locale() const { return locale_; }
    [[nodiscard]] const std::string& timeZone() const { return timeZone_; }
    [[nodiscard]] bool isValid() const { return understood_ && timeZone_ != "Etc/Unknown"; }

    std::size_t writeCached(Date date, char* out) const noexcept;

private:
    void writeEntry(const CachedSecond& entry, std::uint32_t nanoseconds, char* out) const noexcept;
    void learnDigits(const icu::Locale& locale, const icu::TimeZone& zone);
    [[nodiscard]] Rendering render(double milliseconds) const;
    void appendCached(const CachedSecond& entry, std::uint32_t nanoseconds, std::string& out) const;
    bool appendAndCache(SplitDate date, std::string& out) const;
    void appendRendered(SplitDate date, std::string& out) const;
    void writeFraction(char* start, std::size_t digitCount, std::uint32_t nanoseconds) const noexcept;

    std::string pattern_;
    std::string locale_;
    std::string timeZone_;
    // Whether only the C library knows it, and is asked for each second anew.
    bool isOfTheCLibraryAlone_ = false;
    std::uint64_t number_ = nextFormatterNumber();
    std::unique_ptr<SharedFormat> format_;
    std::array<std::string, 10> digits_;
    // 0 where the locale's numbers are not written digit by digit.
    std::size_t digitWidth_ = 0;
    SubSecondFields subSecond_;
    bool understood_ = false;
    bool cacheable_ = false;
};

DateFormatter::Engine::Engine(std::string pattern, const std::string& localeIdentifier,
                              const std::string& timeZoneIdentifier)
    : pattern_(std::move(pattern)), subSecond_(subSecondFields(pattern_)) {
    const std::lock_guard lock(making);
    const icu::Locale locale = makeLocale(localeIdentifier);
    std::unique_ptr<icu::TimeZone> zone = makeTimeZone(timeZoneIdentifier);
    if (timeZoneIdentifier.empty()) {
        if (const std::optional<std::string> identifier = timeZoneOfTheCLibraryAlone()) {
            isOfTheCLibraryAlone_ = true;
            zone = makeTimeZone(*identifier, localTimeAt(0));
        }
    }
    locale_ = locale == icu::Locale::getRoot() ? "root" : locale.getName();
    icu::UnicodeString zoneIdentifier;
    zone->getID(zoneIdentifier).toUTF8String(timeZone_);
    format_ = std::make_unique<SharedFormat>(makeFormat(pattern_, locale, *zone));
    if (subSecond_.fractionRuns > 0) {
        learnDigits(locale, *zone);
    }
    understood_ = render(0).understood;
    cacheable_ = understood_ && !subSecond_.millisecondsInDay &&
                 (subSecond_.fractionRuns == 0 || (subSecond_.fractionRuns == 1 && digitWidth_ > 0));
}

/// Asks ICU for the ten digits, and whether a number is its digits side by side: some numbering
/// systems, such as Roman numerals, are written otherwise.
void DateFormatter::Engine::learnDigits(const icu::Locale& locale, const icu::TimeZone& zone) {
    const std::unique_ptr<icu::SimpleDateFormat> format = makeFormat("S", locale, zone);
    if (format == nullptr) {
        return;
    }
    const auto fraction = [&format](const char* pattern, double milliseconds) {
        std::string text;
        icu::UnicodeString formatted;
        format->applyPattern(pattern);
        format->format(milliseconds, formatted).toUTF8String(text);
        return text;
    };
    for (std::size_t digit = 0; digit < digits_.size(); ++digit) {
        digits_[digit] = fraction("S", static_cast<double>(digit) * 100);
    }
    const std::size_t width = digits_[0].size();
    const bool sameWidth =
        std::all_of(digits_.begin(), digits_.end(), [&](const std::string& digit) { return digit.size() == width; });
    const bool positional = fraction("SSS", 123) == digits_[1] + digits_[2] + digits_[3] &&
                            fraction("SSSS", 7) == digits_[0] + digits_[0] + digits_[7] + digits_[0];
    digitWidth_ = sameWidth && positional ? width : 0;
}

Rendering DateFormatter::Engine::render(double milliseconds) const {
    Rendering rendering;
    std::unique_ptr<icu::SimpleDateFormat> format = format_->take();
    if (format == nullptr) {
        return rendering;
    }
    std::string zoneName;
    if (isOfTheCLibraryAlone_) {
        LocalTime local = localTimeAt(static_cast<std::int64_t>(std::floor(milliseconds / 1000)));
        format->adoptTimeZone(makeTimeZone(timeZone_, local).release());
        zoneName = std::move(local.name);
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text;
    icu::FieldPositionIterator positions;
    format->format(milliseconds, text, &positions, status);
    rendering.understood = U_SUCCESS(status) != 0;
    format_->giveBack(std::move(format));

    std::int32_t done = 0;
    icu::FieldPosition position;
    while (positions.next(position)) {
        const bool isFraction = digitWidth_ > 0 && position.getField() == UDAT_FRACTIONAL_SECOND_FIELD;
        const bool isNameOfZone = isOfTheCLibraryAlone_ && position.getField() == UDAT_TIMEZONE_FIELD;
        if (!isFraction && !isNameOfZone) {
            continue;
        }
        text.tempSubStringBetween(done, position.getBeginIndex()).toUTF8String(rendering.text);
        done = position.getEndIndex();
        if (isNameOfZone) {
            rendering.text += zoneName;
            continue;
        }
        const std::size_t offset = rendering.text.size();
        text.tempSubStringBetween(position.getBeginIndex(), done).toUTF8String(rendering.text);
        rendering.fractions.push_back({offset, (rendering.text.size() - offset) / digitWidth_});
    }
    text.tempSubString(done).toUTF8String(rendering.text);
    return rendering;
}

void DateFormatter::Engine::append(Date date, std::string& out) const {
    if (const CachedSecond* const entry = cacheOfThread().find(number_, date); entry != nullptr) {
        appendCached(*entry, static_cast<std::uint32_t>(entry->nanosecondsInto(date)), out);
        return;
    }
    const SplitDate split(date);
    if (!cacheable_ || !appendAndCache(split, out)) {
        appendRendered(split, out);
    }
}

void DateFormatter::Engine::appendCached(const CachedSecond& entry, std::uint32_t nanoseconds, std::string& out) const {
    const std::size_t start = out.size();
    out.resize(start + entry.length);
    writeEntry(entry, nanoseconds, out.data() + start);
}

std::size_t DateFormatter::Engine::writeCached(Date date, char* out) const noexcept {
    const CachedSecond* const entry = cacheOfThread().find(number_, date);
    if (entry == nullptr) {
        return 0;
    }
    writeEntry(*entry, static_cast<std::uint32_t>(entry->nanosecondsInto(date)), out);
    return entry->length;
}

void DateFormatter::Engine::writeEntry(const CachedSecond& entry, std::uint32_t nanoseconds, char* out) const noexcept {
    TextWriter(out).append(std::string_view(entry.text.data(), entry.length));
    if (entry.fractionDigits > 0) {
        writeFraction(out + entry.fractionOffset, entry.fractionDigits, nanoseconds);
    }
}

/// Whether the second's text could be kept; if not, nothing was appended.
bool DateFormatter::Engine::appendAndCache(SplitDate date, std::string& out) const {
    if (date.second < firstWholeSecond || date.second >= lastSecond) {
        return false;
    }
    const Rendering rendering = render(static_cast<double>(date.second) * 1000);
    if (rendering.text.size() > CachedSecond::capacity || rendering.fractions.size() != subSecond_.fractionRuns) {
        return false;
    }
    CachedSecond& entry = cacheOfThread().victim();
    entry.formatter = number_;
    entry.start = date.second * nanosecondsInSecond;
    entry.length = static_cast<std::uint32_t>(rendering.text.size());
    entry.fractionDigits = 0;
    if (!rendering.fractions.empty()) {
        entry.fractionOffset = static_cast<std::uint32_t>(rendering.fractions.front().offset);
        entry.fractionDigits = static_cast<std::uint32_t>(rendering.fractions.front().digitCount);
    }
    std::memcpy(entry.text.data(), rendering.text.data(), rendering.text.size());
    appendCached(entry, date.nanoseconds, out);
    return true;
}

void DateFormatter::Engine::appendRendered(SplitDate date, std::string& out) const {
    const std::uint32_t milliseconds = date.nanoseconds / 1'000'000;
    Rendering rendering = render(static_cast<double>(date.second) * 1000 + milliseconds);
    for (const FractionRun& run : rendering.fractions) {
        writeFraction(rendering.text.data() + run.offset, run.digitCount, date.nanoseconds);
    }
    out += rendering.text;
}

/// Writes the first digits of the fraction over those at `start`, of which there are `digitCount`;
/// digits beyond nanoseconds are zeros already.
void DateFormatter::Engine::writeFraction(char* start, std::size_t digitCount,
                                          std::uint32_t nanoseconds) const noexcept {
    if (digitCount == 3 && digitWidth_ == 1) {
        // What nearly every date has; without a loop the divisions run side by side.
        const std::uint32_t milliseconds = nanoseconds / 1'000'000;
        start[0] = static_cast<char>('0' + milliseconds / 100);
        start[1] = static_cast<char>('0' + milliseconds / 10 % 10);
        start[2] = static_cast<char>('0' + milliseconds % 10);
        return;
    }
    const std::size_t count = std::min(digitCount, digitsOfNanoseconds);
    std::uint32_t rest = firstDigits(nanoseconds, count);
    for (std::size_t i = count; i > 0; --i, rest /= 10) {
        if (digitWidth_ == 1) {
            start[i - 1] = static_cast<char>('0' + rest % 10);
        } else {
            std::memcpy(start + (i - 1) * digitWidth_, digits_[rest % 10].data(), digitWidth_);
        }
    }
}

DateFormatter::DateFormatter(std::string pattern) : DateFormatter(std::move(pattern), {}, {}) {}

DateFormatter::DateFormatter(std::string pattern, const std::string& localeIdentifier,
                             const std::string& timeZoneIdentifier)
    : engine_(std::make_unique<const Engine>(std::move(pattern), localeIdentifier, timeZoneIdentifier)) {}

DateFormatter::~DateFormatter() = default;

std::string DateFormatter::string(Date date) const {
    std::string text;
    append(date, text);
    return text;
}

void DateFormatter::append(Date date, std::string& out) const {
    engine_->append(date, out);
}

std::size_t DateFormatter::writeCached(Date date, char* out) const noexcept {
    return typeid(*this) == typeid(DateFormatter) ? engine_->writeCached(date, out) : 0;
}

const std::string& DateFormatter::pattern() const {
    return engine_->pattern();
}
const std::string& DateFormatter::locale() const {
    return engine_->locale();
}
const std::string& DateFormatter::timeZone() const {
    return engine_->timeZone();
}
bool DateFormatter::isValid() const {
    return engine_->isValid();
}

}  // namespace velora
