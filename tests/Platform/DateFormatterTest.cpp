#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>

#include "support/EnvironmentVariable.h"
#include "support/ForkedChild.h"

namespace velora::test {
namespace {

Date dateAt(std::int64_t seconds, std::int64_t nanoseconds = 0) {
    return Date(std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds));
}

std::string format(const char* pattern, Date date, const char* locale = "en_US", const char* zone = "UTC") {
    return DateFormatter(pattern, locale, zone).string(date);
}

// 2023-11-14 22:13:20 UTC, a Tuesday.
constexpr std::int64_t november = 1'700'000'000;

TEST(DateFormatter, WritesTheFieldsOfAPattern) {
    const Date date = dateAt(november, 123'456'789);
    EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss.SSS", date), "2023-11-14 22:13:20.123");
    EXPECT_EQ(format("_yyyy-MM-dd_HHmmss", date), "_2023-11-14_221320");
    EXPECT_EQ(format("EEEE d MMMM y, h:mm a", date), "Tuesday 14 November 2023, 10:13 PM");
    EXPECT_EQ(format("D w e G QQQ", date), "318 46 3 AD Q4");
    EXPECT_EQ(format("", date), "");
}

TEST(DateFormatter, SpeaksTheLanguageOfTheLocale) {
    const Date date = dateAt(november, 123'000'000);
    EXPECT_EQ(format("EEEE, d. MMMM yyyy", date, "de_DE"), "Dienstag, 14. November 2023");
    EXPECT_EQ(format("EEEE, d. MMMM yyyy", date, "de-DE"), "Dienstag, 14. November 2023");
    EXPECT_EQ(format("EEEE d MMMM", date, "fr_FR"), "mardi 14 novembre");
    EXPECT_EQ(format("M月d日 EEEE", date, "ja_JP"), "11月14日 火曜日");
}

TEST(DateFormatter, WritesTheDigitsAndTheCalendarOfTheLocale) {
    const Date date = dateAt(november, 123'000'000);
    EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss.SSS", date, "ar_EG"), "٢٠٢٣-١١-١٤ ٢٢:١٣:٢٠.١٢٣");
    EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss.SSS", date, "fa_IR"), "۱۴۰۲-۰۸-۲۳ ۲۲:۱۳:۲۰.۱۲۳");
    EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss.SSS", date, "th_TH"), "2566-11-14 22:13:20.123");
    EXPECT_EQ(format("yyyy-MM-dd HH:mm:ss.SSS", date, "ar-EG-u-nu-latn"), "2023-11-14 22:13:20.123");
    EXPECT_EQ(format("ss.SSS", date, "en_US@numbers=hanidec"), "二〇.一二三");
}

TEST(DateFormatter, WritesNanosecondsInTheDigitsOfTheLocaleToo) {
    EXPECT_EQ(format("s.SSSSSSSSSS", dateAt(november, 123'456'789), "ar_EG"), "٢٠.١٢٣٤٥٦٧٨٩٠");
    EXPECT_EQ(format("s.SSSS", dateAt(november, 123'456'789), "en_US@numbers=cakm"), "𑄸𑄶.𑄷𑄸𑄹𑄺");
}

TEST(DateFormatter, LeavesNumbersThatAreNoRowOfDigitsToICU) {
    EXPECT_EQ(format("s.SSS", dateAt(november, 123'456'789), "en_US@numbers=roman"), "XX.CXXIII");
}

TEST(DateFormatter, FollowsSummerTimeInBerlin) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss xxx", "de_DE", "Europe/Berlin");
    EXPECT_EQ(formatter.string(dateAt(1'679'792'399)), "2023-03-26 01:59:59 +01:00");
    EXPECT_EQ(formatter.string(dateAt(1'679'792'400)), "2023-03-26 03:00:00 +02:00");
    EXPECT_EQ(formatter.string(dateAt(1'698'541'199)), "2023-10-29 02:59:59 +02:00");
    EXPECT_EQ(formatter.string(dateAt(1'698'541'200)), "2023-10-29 02:00:00 +01:00");
}

TEST(DateFormatter, KeepsQuotedTextAsItIs) {
    const Date date = dateAt(november, 123'456'789);
    EXPECT_EQ(format("yyyy 'at' HH", date), "2023 at 22");
    EXPECT_EQ(format("h 'o''clock'", date), "10 o'clock");
    EXPECT_EQ(format("''yy''", date), "'23'");
    EXPECT_EQ(format("'SSS A' ss.SS", date), "SSS A 20.12");
    EXPECT_EQ(format("ss.S'S'", date), "20.1S");
    EXPECT_EQ(format("S''S", date), "1'1");
    EXPECT_EQ(format("\u00FC/\u6708 ss \U0001F44D .SSS", date), "\u00FC/\u6708 20 \U0001F44D .123");
}

TEST(DateFormatter, CutsTheFractionOffWithoutRounding) {
    const Date date = dateAt(november, 987'654'321);
    const std::string digits = "987654321000";
    for (std::size_t count = 1; count <= digits.size(); ++count) {
        const DateFormatter formatter("ss." + std::string(count, 'S') + "x", "en_US", "UTC");
        EXPECT_EQ(formatter.string(date), "20." + digits.substr(0, count) + "+00") << "first, from ICU";
        EXPECT_EQ(formatter.string(date), "20." + digits.substr(0, count) + "+00") << "again, from the cache";
    }
    EXPECT_EQ(format("ss.SSS", dateAt(november, 999'999'999)), "20.999");
    EXPECT_EQ(format("ss.SSSSSSSSS", dateAt(november, 1)), "20.000000001");
    EXPECT_EQ(format("ss.SSS", dateAt(november, 999'999)), "20.000");
}

TEST(DateFormatter, WritesANewFractionIntoASecondItHasSeen) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS zzz", "en_US", "UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 999'000'000)), "2023-11-14 22:13:20.999 UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 1'000'000)), "2023-11-14 22:13:20.001 UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 0)), "2023-11-14 22:13:20.000 UTC");
    EXPECT_EQ(formatter.string(dateAt(november + 1, 0)), "2023-11-14 22:13:21.000 UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 500'000'000)), "2023-11-14 22:13:20.500 UTC");
}

TEST(DateFormatter, WritesSeveralFractions) {
    const DateFormatter formatter("S ss.SSS 'x' SSSSSS", "en_US", "UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 123'456'789)), "1 20.123 x 123456");
    EXPECT_EQ(formatter.string(dateAt(november, 987'654'321)), "9 20.987 x 987654");
}

TEST(DateFormatter, WritesTheMillisecondsOfTheDayAnewEachTime) {
    const DateFormatter formatter("A SSS", "en_US", "UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 123'456'789)), "80000123 123");
    EXPECT_EQ(formatter.string(dateAt(november, 124'456'789)), "80000124 124");
}

TEST(DateFormatter, RoundsDatesBefore1970DownToTheirSecond) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSSSSSSSS", "en_US", "UTC");
    EXPECT_EQ(formatter.string(dateAt(0, -1)), "1969-12-31 23:59:59.999999999");
    EXPECT_EQ(formatter.string(dateAt(-1, 0)), "1969-12-31 23:59:59.000000000");
    EXPECT_EQ(formatter.string(dateAt(-1, -500'000'000)), "1969-12-31 23:59:58.500000000");
    EXPECT_EQ(formatter.string(dateAt(0, 0)), "1970-01-01 00:00:00.000000000");
}

TEST(DateFormatter, ReachesToTheFirstAndLastDate) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSSSSSSSS", "en_US", "UTC");
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(formatter.string(Date::min()), "1677-09-21 00:12:43.145224192");
        EXPECT_EQ(formatter.string(Date::max()), "2262-04-11 23:47:16.854775807");
    }
}

TEST(DateFormatter, AppendsToWhatIsThere) {
    const DateFormatter formatter("HH:mm:ss.SSS", "en_US", "UTC");
    std::string text = "at ";
    formatter.append(dateAt(november, 5'000'000), text);
    text += ", ";
    formatter.append(dateAt(november, 6'000'000), text);
    EXPECT_EQ(text, "at 22:13:20.005, 22:13:20.006");
}

TEST(DateFormatter, WritesTextTooLongToKeep) {
    const std::string longText(300, 'x');
    const DateFormatter formatter("'" + longText + "' ss.SSSSSS", "en_US", "UTC");
    EXPECT_EQ(formatter.string(dateAt(november, 123'456'789)), longText + " 20.123456");
    EXPECT_EQ(formatter.string(dateAt(november, 987'654'321)), longText + " 20.987654");
}

TEST(DateFormatter, WritesAlternatingSecondsAndFormattersRight) {
    const DateFormatter hours("HH:mm:ss.SSS", "en_US", "UTC");
    const DateFormatter kolkata("HH:mm:ss.SSS", "en_US", "Asia/Kolkata");
    const DateFormatter plain("ss", "en_US", "UTC");
    for (std::int64_t round = 0; round < 3; ++round) {
        for (int second = 0; second < 7; ++second) {
            const Date date = dateAt(november + second, round * 1'000'000);
            const std::string end = std::to_string(second) + ".00" + std::to_string(round);
            EXPECT_EQ(hours.string(date), "22:13:2" + end);
            EXPECT_EQ(kolkata.string(date), "03:43:2" + end);
            EXPECT_EQ(plain.string(date), "2" + std::to_string(second));
        }
    }
}

TEST(DateFormatter, NeverShowsTheTextOfAFormatterThatLivedAtItsAddress) {
    alignas(DateFormatter) unsigned char room[sizeof(DateFormatter)];
    const auto formatInRoom = [&room](const char* pattern) {
        auto* const formatter = new (room) DateFormatter(pattern, "en_US", "UTC");
        std::string text = formatter->string(dateAt(november));
        formatter->~DateFormatter();
        return text;
    };
    EXPECT_EQ(formatInRoom("yyyy"), "2023");
    EXPECT_EQ(formatInRoom("ss"), "20");
    EXPECT_EQ(formatInRoom("HH"), "22");
}

TEST(DateFormatter, WritesWhatTheThreadHasFormattedBeforeWithoutWork) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS", "en_US", "UTC");
    const Date date(std::chrono::milliseconds(1'704'164'645'678));
    std::array<char, DateFormatter::maximumCachedSize> memory{};
    EXPECT_EQ(formatter.writeCached(date, memory.data()), 0U);
    EXPECT_EQ(formatter.string(date), "2024-01-02 03:04:05.678");
    const std::size_t size = formatter.writeCached(date + std::chrono::milliseconds(300), memory.data());
    EXPECT_EQ(std::string(memory.data(), size), "2024-01-02 03:04:05.978");
    EXPECT_EQ(formatter.writeCached(date + std::chrono::milliseconds(400), memory.data()), 0U);
    std::thread([&] { EXPECT_EQ(formatter.writeCached(date, memory.data()), 0U); }).join();
}

TEST(DateFormatter, LeavesASubclassToItsOwnText) {
    class Stardate : public DateFormatter {
    public:
        using DateFormatter::DateFormatter;
        void append(Date date, std::string& out) const override {
            DateFormatter::append(date, out);
            out += '*';
        }
    };
    const Stardate formatter("ss", "en_US", "UTC");
    const Date date = dateFromSecondsSince1970(5);
    EXPECT_EQ(formatter.string(date), "05*");
    std::array<char, DateFormatter::maximumCachedSize> memory{};
    EXPECT_EQ(formatter.writeCached(date, memory.data()), 0U);
}

TEST(DateFormatter, TellsWhatItWasMadeFrom) {
    const DateFormatter formatter("yyyy 'x", "de-DE", "Europe/Berlin");
    EXPECT_EQ(formatter.pattern(), "yyyy 'x");
    EXPECT_EQ(formatter.locale(), "de_DE");
    EXPECT_EQ(formatter.timeZone(), "Europe/Berlin");
    EXPECT_TRUE(formatter.isValid());
}

TEST(DateFormatter, TakesTheLocaleOfTheEnvironmentInItsOrder) {
    const EnvironmentVariable all("LC_ALL", nullptr);
    const EnvironmentVariable time("LC_TIME", nullptr);
    const EnvironmentVariable language("LANG", "fr_FR.UTF-8");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "fr_FR");
    const EnvironmentVariable germanTime("LC_TIME", "de_DE.UTF-8");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "de_DE");
    EXPECT_EQ(DateFormatter("EEEE", "", "UTC").string(dateAt(november)), "Dienstag");
    const EnvironmentVariable emptyAll("LC_ALL", "");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "de_DE");
    const EnvironmentVariable serbianAll("LC_ALL", "sr_RS.UTF-8@latin");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "sr_Latn_RS");
    const EnvironmentVariable uzbekAll("LC_ALL", "uz_UZ.UTF-8@cyrillic");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "uz_Cyrl_UZ");
    const EnvironmentVariable euroAll("LC_ALL", "it_IT@euro");
    EXPECT_EQ(DateFormatter("yyyy").locale(), "it_IT");
}

TEST(DateFormatter, TakesTheUnnamedLocaleAsPOSIXEnglish) {
    const EnvironmentVariable time("LC_TIME", nullptr);
    const EnvironmentVariable language("LANG", nullptr);
    for (const char* name : {static_cast<const char*>(nullptr), "C", "POSIX", "C.UTF-8"}) {
        const EnvironmentVariable all("LC_ALL", name);
        EXPECT_EQ(DateFormatter("yyyy").locale(), "en_US_POSIX");
        EXPECT_EQ(DateFormatter("EEE", "", "UTC").string(dateAt(november)), "Tue");
    }
}

TEST(DateFormatter, TakesTheTimeZoneOfTheEnvironmentAsItIsWhenMade) {
    const EnvironmentVariable berlin("TZ", "Europe/Berlin");
    const DateFormatter inBerlin("HH:mm:ss.SSS");
    EXPECT_EQ(inBerlin.timeZone(), "Europe/Berlin");
    const EnvironmentVariable kolkata("TZ", "Asia/Kolkata");
    EXPECT_EQ(DateFormatter("HH:mm:ss", "en_US", "").string(dateAt(november)), "03:43:20");
    EXPECT_EQ(inBerlin.string(dateAt(november)), "23:13:20.000");
}

/// The date of `november`, or of a day in July, in the zone of the environment's `TZ`.
std::string inZoneOfEnvironment(const char* TZ, const char* pattern, std::int64_t second = november) {
    const EnvironmentVariable zone("TZ", TZ);
    return DateFormatter(pattern, "en_US", "").string(dateAt(second, 5'000'000));
}

TEST(DateFormatter, HasTheCLibraryReckonInAZoneThatIsGivenByRules) {
    constexpr std::int64_t july = 1'689'336'000;  // 2023-07-14 12:00:00 UTC
    constexpr const char* pattern = "yyyy-MM-dd HH:mm:ss.SSS Z z";
    const char* const rules = "CET-1CEST,M3.5.0,M10.5.0/3";
    EXPECT_EQ(inZoneOfEnvironment(rules, pattern), "2023-11-14 23:13:20.005 +0100 CET");
    EXPECT_EQ(inZoneOfEnvironment(rules, pattern, july), "2023-07-14 14:00:00.005 +0200 CEST");
    EXPECT_EQ(inZoneOfEnvironment("IST-5:30", pattern), "2023-11-15 03:43:20.005 +0530 IST");
    EXPECT_EQ(inZoneOfEnvironment("<+03>-3", pattern), "2023-11-15 01:13:20.005 +0300 +03");
    EXPECT_EQ(inZoneOfEnvironment("GMT+3", pattern), "2023-11-14 19:13:20.005 -0300 GMT");
    EXPECT_EQ(inZoneOfEnvironment("NST3:30NDT,M3.2.0,M11.1.0", "XXX 'z' zzzz z", july), "-02:30 z NDT NDT");
    EXPECT_EQ(inZoneOfEnvironment(":/usr/share/zoneinfo/Europe/Berlin", pattern, july),
              "2023-07-14 14:00:00.005 +0200 CEST");
}

TEST(DateFormatter, ChangesToSummerTimeInTheSecondThatTheRulesSay) {
    const EnvironmentVariable zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const DateFormatter formatter("HH:mm:ss.SSS z");
    constexpr std::int64_t change = 1'679'792'400;  // 2023-03-26 01:00:00 UTC
    EXPECT_EQ(formatter.string(dateAt(change - 1, 999'000'000)), "01:59:59.999 CET");
    EXPECT_EQ(formatter.string(dateAt(change)), "03:00:00.000 CEST");
    EXPECT_EQ(formatter.timeZone(), "CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_TRUE(formatter.isValid());
    EXPECT_EQ(DateFormatter("z", "en_US", "Asia/Kolkata").string(dateAt(change)), "GMT+5:30");
}

TEST(DateFormatter, ReckonsByRulesInAChildForkedWhileAnotherThreadFormats) {
    const EnvironmentVariable zone("TZ", "IST-5:30");
    const DateFormatter formatter("HH:mm:ss");
    std::atomic<bool> done = false;
    std::thread other([&] {
        for (std::int64_t second = 0; !done; ++second) {
            static_cast<void>(formatter.string(dateAt(second)));
        }
    });
    int correct = 0;
    constexpr int forks = 200;
    for (int i = 0; i < forks; ++i) {
        correct += resultOfForkedChild([&] { return formatter.string(dateAt(november)) == "03:43:20" ? 0 : 1; }) == 0;
    }
    done = true;
    other.join();
    EXPECT_EQ(correct, forks);
}

TEST(DateFormatter, TakesAnUnknownTimeZoneAsGMT) {
    const DateFormatter formatter("HH:mm ZZZZZ", "en_US", "Mars/Olympus");
    EXPECT_EQ(formatter.string(dateAt(november)), "22:13 Z");
    EXPECT_EQ(formatter.timeZone(), "Etc/Unknown");
    EXPECT_FALSE(formatter.isValid());
}

TEST(DateFormatter, FallsBackFromAnUnknownLocale) {
    EXPECT_EQ(format("EEEE", dateAt(november), "de_ZZ"), "Dienstag");
    EXPECT_EQ(format("yyyy-MM-dd", dateAt(november), std::string(1000, '!').c_str()), "2023-11-14");
}

TEST(DateFormatter, TakesTheRootLocaleForAnUnknownOneAndNotTheProcesssOwn) {
    const icu::Locale before;
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(icu::Locale("de_DE"), status);
    for (const char* name : {"zz_ZZ", "zz", "Africa/Cairo", "root"}) {
        EXPECT_EQ(format("EEEE MMMM", dateAt(november), name), "Tue M11") << name;
        EXPECT_EQ(DateFormatter("yyyy", name, "UTC").locale(), "root");
    }
    // Old names of languages that ICU knows under another one.
    EXPECT_EQ(DateFormatter("yyyy", "iw_IL", "UTC").locale(), "iw_IL");
    EXPECT_EQ(format("MMMM", dateAt(november), "in_ID"), "November");
    icu::Locale::setDefault(before, status);
}

TEST(DateFormatter, UsesAPatternAsFarAsItIsUnderstood) {
    const DateFormatter unknown("HH:mm:ss.SSS J yyyy", "en_US", "UTC");
    EXPECT_FALSE(unknown.isValid());
    for (const std::int64_t milliseconds : {123, 456}) {
        const std::string text = unknown.string(dateAt(november, milliseconds * 1'000'000));
        EXPECT_EQ(text.substr(0, 13), "22:13:20." + std::to_string(milliseconds) + " ");
        EXPECT_EQ(text.find("2023"), std::string::npos) << text;
    }
    EXPECT_EQ(format("ss 'open", dateAt(november)), "20 open");
    EXPECT_EQ(format("ss\xFF", dateAt(november)), "20\uFFFD");
}

/// What ICU makes of a date, in milliseconds.
std::string formatByICU(icu::SimpleDateFormat& format, std::int64_t milliseconds) {
    icu::UnicodeString text;
    std::string utf8;
    format.format(static_cast<double>(milliseconds), text).toUTF8String(utf8);
    return utf8;
}

TEST(DateFormatter, AgreesWithICUOnRandomDates) {
    const std::vector<std::string> patterns{"yyyy-MM-dd HH:mm:ss.SSS",
                                            "EEEE, d MMMM y G 'at' h:mm:ss.SS a zzzz",
                                            "SSS.ss.S",
                                            "YYYY-'W'ww-e DDD A",
                                            "yyyyMMdd'T'HHmmssXX",
                                            "r(U) MMMM d QQQQ B kk:KK VVVV"};
    const std::vector<std::string> locales{"en_US",
                                           "de_DE",
                                           "ar_EG",
                                           "fa_IR",
                                           "th_TH",
                                           "ja_JP@calendar=japanese",
                                           "he_IL@calendar=hebrew",
                                           "zh_CN@calendar=chinese",
                                           "ff_Adlm_GN",
                                           "hi_IN@numbers=deva"};
    const std::vector<std::string> zones{"UTC", "Europe/Berlin", "Asia/Kolkata", "America/St_Johns", "Pacific/Apia"};
    std::mt19937_64 random(2024);
    std::uniform_int_distribution<std::int64_t> seconds(-3'000'000'000, 5'000'000'000);
    std::uniform_int_distribution<std::int64_t> nanoseconds(0, 999'999'999);
    for (const std::string& pattern : patterns) {
        for (const std::string& locale : locales) {
            const std::string& zone = zones[random() % zones.size()];
            const DateFormatter formatter(pattern, locale, zone);
            UErrorCode status = U_ZERO_ERROR;
            icu::SimpleDateFormat reference(icu::UnicodeString::fromUTF8(pattern), icu::Locale(locale.c_str()), status);
            ASSERT_TRUE(U_SUCCESS(status));
            reference.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)));
            for (int i = 0; i < 20; ++i) {
                const std::int64_t second = seconds(random);
                for (int again = 0; again < 3; ++again) {
                    const std::int64_t nanosecond = nanoseconds(random);
                    ASSERT_EQ(formatter.string(dateAt(second, nanosecond)),
                              formatByICU(reference, second * 1000 + nanosecond / 1'000'000))
                        << pattern << ' ' << locale << ' ' << zone << ' ' << second << ' ' << nanosecond;
                }
            }
        }
    }
}

TEST(DateFormatter, FormatsOnManyThreadsAtOnce) {
    const DateFormatter cached("yyyy-MM-dd HH:mm:ss.SSSSSS", "en_US", "Europe/Berlin");
    const DateFormatter uncached("A SSS zzzz", "fa_IR", "Europe/Berlin");
    std::vector<Date> dates;
    std::vector<std::string> expected;
    for (std::int64_t i = 0; i < 200; ++i) {
        dates.push_back(dateAt(november + i * 100'000 / 7, i * 1'234'567));
        expected.push_back(cached.string(dates.back()) + uncached.string(dates.back()));
    }
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (std::size_t i = 0; i < 8; ++i) {
        threads.emplace_back([&, i] {
            for (std::size_t j = 0; j < 3 * dates.size(); ++j) {
                const std::size_t k = (j + i * 25) % dates.size();
                EXPECT_EQ(cached.string(dates[k]) + uncached.string(dates[k]), expected[k]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(DateFormatter, IsMadeOnManyThreadsAtOnce) {
    const EnvironmentVariable zone("TZ", "Asia/Kolkata");
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([] {
            for (int j = 0; j < 10; ++j) {
                EXPECT_EQ(DateFormatter("HH:mm:ss").string(dateAt(november)), "03:43:20");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Prints the text of a date when destroyed.
class FormatsWhenDestroyed {
public:
    explicit FormatsWhenDestroyed(const DateFormatter& formatter) : formatter_(formatter) {}
    FormatsWhenDestroyed(const FormatsWhenDestroyed&) = delete;
    FormatsWhenDestroyed& operator=(const FormatsWhenDestroyed&) = delete;
    ~FormatsWhenDestroyed() {
        const std::string seen = formatter_.string(dateAt(november, 1'000'000));
        const std::string fresh = formatter_.string(dateAt(november + 1, 2'000'000));
        std::fprintf(stderr, "%s %s\n", seen.c_str(), fresh.c_str());
    }

private:
    const DateFormatter& formatter_;
};

TEST(DateFormatterDeathTest, FormatsWhileStaticObjectsAreDestroyed) {
    EXPECT_EXIT(
        {
            static const DateFormatter formatter("HH:mm:ss.SSS", "en_US", "UTC");
            static const FormatsWhenDestroyed late(formatter);
            static_cast<void>(formatter.string(dateAt(november)));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^22:13:20.001 22:13:21.002\n$");
}

TEST(DateFormatterDeathTest, FormatsWhileAThreadsOwnObjectsAreDestroyed) {
    EXPECT_EXIT(
        {
            const DateFormatter formatter("HH:mm:ss.SSS", "en_US", "UTC");
            std::thread([&formatter] {
                static thread_local const FormatsWhenDestroyed late(formatter);
                static_cast<void>(formatter.string(dateAt(november)));
            }).join();
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "^22:13:20.001 22:13:21.002\n$");
}

}  // namespace
}  // namespace velora::test
