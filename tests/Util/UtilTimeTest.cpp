#include "Tolvex/Util/UtilTime.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/TimeZone.h"

namespace Tolvex::Util {
namespace {

using Support::berlinZone;
using Support::InTimeZone;
using Support::kolkataZone;
using Support::losAngelesZone;
using Support::utcZone;

constexpr time_t march4 = 1614834367;  ///< 2021-03-04 05:06:07 UTC
constexpr bool narrowTime = sizeof(time_t) == 4;

/// A string of its own with the characters of the literal, also its NULs.
template <std::size_t size>
std::string Text(const char (&literal)[size])
{
    return std::string(literal, size - 1);
}

/// The time that is read from the text, in UTC.
std::string ReadAsUtc(const std::string& text)
{
    return DateISO(Str2Time(text));
}

/// Gives the process a fixed zone. Without one the C library reads the zone again in each mktime(),
/// under a lock that the thread sanitizer does not know.
void FixZoneForThreads()
{
    setenv("TZ", utcZone, 1);
    tzset();
}

// --------------------------------------------------------------------------------------- Str2Time

TEST(Str2TimeTest, NumbersAreYearMonthDayHourMinuteSecond)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(Str2Time("2021-03-04 05:06:07"), march4); });
}

TEST(Str2TimeTest, ResultIsLocalTimeInEveryZone)
{
    InTimeZone(berlinZone, [] {
        EXPECT_EQ(Str2Time("2021-03-04 05:06:07"), march4 - 3600);
        EXPECT_EQ(Str2Time("2021-07-04 05:06:07"), 1625375167 - 7200);
    });
    InTimeZone(kolkataZone, [] { EXPECT_EQ(Str2Time("2021-03-04 05:06:07"), march4 - 19800); });
    InTimeZone(losAngelesZone, [] {
        EXPECT_EQ(Str2Time("2021-03-04 05:06:07"), march4 + 28800);
        EXPECT_EQ(Str2Time("2021-07-04 05:06:07"), 1625375167 + 25200);
    });
}

TEST(Str2TimeTest, TimeSkippedBySummerTimeComesOutOneHourLater)
{
    InTimeZone(berlinZone,
               [] { EXPECT_EQ(ReadAsUtc("2021-03-28 02:30:00"), "2021-03-28 03:30:00"); });
    InTimeZone(losAngelesZone,
               [] { EXPECT_EQ(ReadAsUtc("2021-03-14 02:30:00"), "2021-03-14 03:30:00"); });
}

TEST(Str2TimeTest, TimeRepeatedInAutumnIsOneOfItsTwoInstants)
{
    InTimeZone(berlinZone, [] {
        const time_t t = Str2Time("2021-10-31 02:30:00");
        EXPECT_TRUE(t == 1635640200 || t == 1635640200 + 3600) << t;
    });
}

struct ReadCase
{
    const char* name;
    const char* text;
    const char* expected;
};

class Str2TimeReadTest : public testing::TestWithParam<ReadCase>
{
};

TEST_P(Str2TimeReadTest, TextReadsAs)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(ReadAsUtc(GetParam().text), GetParam().expected); });
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Str2TimeReadTest,
    testing::Values(
        ReadCase{"AnySeparators", "2021,3.4 5:6:7", "2021-03-04 05:06:07"},
        ReadCase{"BlanksAlone", "2021 3 4 5 6 7", "2021-03-04 05:06:07"},
        ReadCase{"RunsOfSeparators", "2021--03 ,.-:04  05::06.,07", "2021-03-04 05:06:07"},
        ReadCase{"SeparatorsAround", " -2021-03-04 05:06:07:. ", "2021-03-04 05:06:07"},
        ReadCase{"MoreThanSixNumbers", "2021-03-04 05:06:07 08 09", "2021-03-04 05:06:07"},
        ReadCase{"FractionOfASecondIgnored", "2021-03-04 05:06:07.999", "2021-03-04 05:06:07"},
        ReadCase{"MinusIsASeparator", "2021 -3 -4 -5 -6 -7", "2021-03-04 05:06:07"},
        ReadCase{"PlusIsASign", "+2021 +3 +4 +5 +6 +7", "2021-03-04 05:06:07"},
        ReadCase{"TabIsNoSeparator", "2021-03-04 05:06:07\t8", "2021-03-04 05:06:07"},
        ReadCase{"TabBeforeANumberIsSkipped", "2021 \t3 4 5 6 7", "2021-03-04 05:06:07"},
        ReadCase{"LettersBehindDigitsIgnored", "2021y 3m 4d 5h 6m 7s", "2021-03-04 05:06:07"},
        ReadCase{"LettersReadAsZero", "2021 March 4 5 6 7", "2020-12-04 05:06:07"},
        ReadCase{"DecimalNotOctal", "2021-010-08 09:011:07", "2021-10-08 09:11:07"},
        ReadCase{"HexReadsAsZero", "2021 3 4 0x5 6 7", "2021-03-04 00:06:07"},
        ReadCase{"MonthZero", "2021-00-04 05:06:07", "2020-12-04 05:06:07"},
        ReadCase{"MonthThirteen", "2021-13-04 05:06:07", "2022-01-04 05:06:07"},
        ReadCase{"DayZero", "2021-03-00 05:06:07", "2021-02-28 05:06:07"},
        ReadCase{"DayThirtyTwo", "2021-03-32 05:06:07", "2021-04-01 05:06:07"},
        ReadCase{"HourTwentyFour", "2021-03-04 24:06:07", "2021-03-05 00:06:07"},
        ReadCase{"MinuteSixty", "2021-03-04 05:60:07", "2021-03-04 06:00:07"},
        ReadCase{"SecondSixty", "2021-03-04 05:06:60", "2021-03-04 05:07:00"},
        ReadCase{"ManySeconds", "1970-1-1 0:0:1614834367", "2021-03-04 05:06:07"},
        ReadCase{"LeapDay", "2020-02-29 00:00:00", "2020-02-29 00:00:00"},
        ReadCase{"NoLeapDay", "2021-02-29 00:00:00", "2021-03-01 00:00:00"},
        ReadCase{"Epoch", "1970-01-01 00:00:00", "1970-01-01 00:00:00"},
        ReadCase{"BeforeTheEpoch", "1969-12-31 23:59:58", "1969-12-31 23:59:58"},
        ReadCase{"LastSecondOf32Bits", "2038-01-19 03:14:07", "2038-01-19 03:14:07"}),
    [](const testing::TestParamInfo<ReadCase>& row) { return std::string(row.param.name); });

TEST(Str2TimeTest, FewerThanSixNumbersGiveMinusOne)
{
    for (const char* const text :
         {"", " ", " ,.-:", "2021", "2021-03", "2021-03-04", "2021-03-04 05", "2021-03-04 05:06",
          "2021-03-04 05:06:", "20210304050607"}) {
        EXPECT_EQ(Str2Time(std::string(text)), -1) << text;
    }
}

TEST(Str2TimeTest, YearThatTheTimeTypeDoesNotReachGivesMinusOne)
{
    InTimeZone(utcZone, [] {
        const std::int64_t expected = narrowTime ? -1 : 2208988800;
        EXPECT_EQ(std::int64_t{Str2Time("2040-01-01 00:00:00")}, expected);
    });
}

TEST(Str2TimeTest, NumberBeyondIntSaturatesAlikeOnAllPlatforms)
{
    InTimeZone(utcZone, [] {
        const time_t largest = Str2Time("2147483647-1-1 0:0:0");
        if (narrowTime) {
            EXPECT_EQ(largest, -1);
        } else {
            tm local{};
            ASSERT_NE(localtime_r(&largest, &local), nullptr);
            EXPECT_EQ(local.tm_year, 2147483647 - 1900);
        }
        EXPECT_EQ(Str2Time("2147483648-1-1 0:0:0"), largest);
        EXPECT_EQ(Str2Time("4294969317-1-1 0:0:0"), largest);  // 2^32 + 2021
        EXPECT_EQ(Str2Time("9223372036854775807-1-1 0:0:0"), largest);
        EXPECT_EQ(Str2Time("99999999999999999999999-1-1 0:0:0"), largest);
    });
}

TEST(Str2TimeTest, EveryHugeNumberCountsAsTheLargestInt)
{
    const auto textWith = [](std::size_t position, const std::string& number) {
        std::array<std::string, 6> numbers{"2021", "3", "4", "5", "6", "7"};
        numbers.at(position) = number;
        std::string text;
        for (const std::string& each : numbers) {
            text += each + " ";
        }
        return text;
    };
    for (std::size_t position = 0; position < 6; ++position) {
        EXPECT_EQ(Str2Time(textWith(position, "99999999999999999999")),
                  Str2Time(textWith(position, "2147483647")))
            << position;
    }
}

struct SplitCase
{
    const char* name;
    std::string before;
    std::string after;
};

class Str2TimeSplitTest : public testing::TestWithParam<SplitCase>
{
};

TEST_P(Str2TimeSplitTest, CallersTextHasNulsForTheFirstSeparatorBehindEachNumber)
{
    const std::string text = GetParam().before;

    Str2Time(text);

    EXPECT_EQ(text, GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Str2TimeSplitTest,
    testing::Values(
        SplitCase{"Usual", Text("2021-03-04 05:06:07"), Text("2021\00003\00004\00005\00006\00007")},
        SplitCase{"Short", Text("1 2 3 4 5 6"), Text("1\0002\0003\0004\0005\0006")},
        SplitCase{"Runs", Text("1--2 ,3.:4  5::6"), Text("1\000-2\000,3\000:4\000 5\000:6")},
        SplitCase{"LeadingSeparatorsStay", Text(" -1 2 3 4 5 6"),
                  Text(" -1\0002\0003\0004\0005\0006")},
        SplitCase{"OneBehindTheSixth", Text("1 2 3 4 5 6 7 8"),
                  Text("1\0002\0003\0004\0005\0006\0007 8")},
        SplitCase{"RunBehindTheSixth", Text("1 2 3 4 5 6..."),
                  Text("1\0002\0003\0004\0005\0006\000..")},
        SplitCase{"FewerThanSix", Text("1 2 3"), Text("1\0002\0003")},
        SplitCase{"FewerThanSixWithARunAtTheEnd", Text("1 2.. "), Text("1\0002\000. ")},
        SplitCase{"SeparatorsAlone", Text(" ,.-:"), Text(" ,.-:")},  //
        SplitCase{"Empty", "", ""},
        SplitCase{"EndsAtItsOwnNul", Text("1 2\0003 4 5 6 7 8"), Text("1\0002\0003 4 5 6 7 8")}),
    [](const testing::TestParamInfo<SplitCase>& row) { return std::string(row.param.name); });

/// Splits a copy with the tokenizer of the C library, up to six numbers.
std::string SplitByStrtok(const std::string& text)
{
    std::string copy = text;
    char* rest = copy.data();
    for (int i = 0; i < 6; ++i) {
        if (std::strtok(rest, " ,.-:") == nullptr) {
            break;
        }
        rest = nullptr;
    }
    return copy;
}

TEST(Str2TimeTest, RandomTextsAreSplitJustAsStrtokDoes)
{
    std::mt19937 random(1);
    const std::string alphabet = Text("0123 ,.-:x\0+");
    std::uniform_int_distribution<std::size_t> length(0, 60);
    std::uniform_int_distribution<std::size_t> letter(0, alphabet.size() - 1);
    for (int i = 0; i < 5000; ++i) {
        std::string text(length(random), ' ');
        for (char& character : text) {
            character = alphabet[letter(random)];
        }
        const std::string expected = SplitByStrtok(text);

        Str2Time(text);

        ASSERT_EQ(text, expected);
    }
}

TEST(Str2TimeTest, CopyOfTheTextMadeBeforeKeepsItsSeparators)
{
    const std::string text = "2021-03-04 05:06:07 and more than fits into the object itself";
    std::string copy = text;

    Str2Time(text);

    EXPECT_EQ(copy, "2021-03-04 05:06:07 and more than fits into the object itself");
    copy[0] = 'x';
    EXPECT_EQ(text[0], '2');
}

TEST(Str2TimeTest, SecondReadingOfTheSameTextFails)
{
    const std::string text = "2021-03-04 05:06:07";
    EXPECT_NE(Str2Time(text), -1);

    EXPECT_EQ(Str2Time(text), -1);
}

TEST(Str2TimeTest, VeryLongTextIsRead)
{
    InTimeZone(utcZone, [] {
        const std::string gap(200000, ':');
        EXPECT_EQ(ReadAsUtc(gap + "2021" + gap + "3" + gap + "4 5 6 7" + gap),
                  "2021-03-04 05:06:07");
        EXPECT_EQ(ReadAsUtc(std::string(200000, '0') + "2021 3 4 5 6 7"), "2021-03-04 05:06:07");
    });
}

TEST(Str2TimeTest, LeavesTheTokenizerOfTheProcessAlone)
{
    char list[] = "one two three";
    ASSERT_STREQ(std::strtok(list, " "), "one");

    Str2Time(std::string("2021-03-04 05:06:07"));

    EXPECT_STREQ(std::strtok(nullptr, " "), "two");
}

TEST(Str2TimeTest, ThreadsReadTheirOwnTextsAtTheSameTime)
{
    FixZoneForThreads();
    const time_t expected = Str2Time(std::string("2021-03-04 05:06:07"));
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                wrong += Str2Time(std::string("2021-03-04 05:06:07")) == expected ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}

// ---------------------------------------------------------------------------------------- DayDiff

struct DayDiffCase
{
    const char* name;
    time_t from;
    time_t to;
    int expected;
};

class DayDiffTest : public testing::TestWithParam<DayDiffCase>
{
};

TEST_P(DayDiffTest, WholeDaysAreCountedTowardZero)
{
    EXPECT_EQ(DayDiff(GetParam().from, GetParam().to), GetParam().expected);
}

TEST_P(DayDiffTest, SwappedArgumentsGiveTheNegative)
{
    EXPECT_EQ(DayDiff(GetParam().to, GetParam().from), -GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Spans, DayDiffTest,
    testing::Values(DayDiffCase{"Nothing", march4, march4, 0},
                    DayDiffCase{"OneSecond", march4, march4 + 1, 0},
                    DayDiffCase{"OneSecondShortOfADay", march4, march4 + 86399, 0},
                    DayDiffCase{"OneDay", march4, march4 + 86400, 1},
                    DayDiffCase{"FortySevenHours", march4, march4 + 169200, 1},
                    DayDiffCase{"OneDayAndNineTenths", march4, march4 + 164160, 1},
                    DayDiffCase{"TwoDays", march4, march4 + 172800, 2},
                    DayDiffCase{"AcrossTheEpoch", -86399, 1, 1},
                    DayDiffCase{"AYear", march4, march4 + 31536000, 365},
                    DayDiffCase{"All32Bits", -2147483647 - 1, 2147483647, 49710}),
    [](const testing::TestParamInfo<DayDiffCase>& row) { return std::string(row.param.name); });

TEST(DayDiffTest, DayOfTwentyThreeHoursIsNoDay)
{
    InTimeZone(berlinZone, [] {
        EXPECT_EQ(DayDiff(Str2Time("2021-03-28 00:00:00"), Str2Time("2021-03-29 00:00:00")), 0);
        EXPECT_EQ(DayDiff(Str2Time("2021-10-31 00:00:00"), Str2Time("2021-11-01 00:00:00")), 1);
    });
}

TEST(DayDiffTest, SpanBeyondIntSaturates)
{
    if constexpr (narrowTime) {
        GTEST_SKIP() << "no two 32-bit times are that far apart";
    }
    constexpr time_t lowest = std::numeric_limits<time_t>::min();
    constexpr time_t highest = std::numeric_limits<time_t>::max();

    EXPECT_EQ(DayDiff(lowest, highest), std::numeric_limits<int>::max());
    EXPECT_EQ(DayDiff(highest, lowest), std::numeric_limits<int>::min());
}

// ------------------------------------------------------------------------------------ IsValidDate

TEST(IsValidDateTest, LocalYears2018To2025AreValidAndNoOthers)
{
    const auto expectRange = [] {
        EXPECT_FALSE(IsValidDate(Str2Time("2017-12-31 23:59:00")));
        EXPECT_FALSE(IsValidDate(Str2Time("2017-12-31 23:59:59")));
        EXPECT_TRUE(IsValidDate(Str2Time("2018-01-01 00:00:00")));
        for (int year = 1970; year <= 2037; ++year) {
            EXPECT_EQ(IsValidDate(Str2Time(std::to_string(year) + "-07-01 12:00:00")),
                      year >= 2018 && year <= 2025)
                << year;
        }
        EXPECT_TRUE(IsValidDate(Str2Time("2025-12-31 23:59:59")));
        EXPECT_FALSE(IsValidDate(Str2Time("2026-01-01 00:00:00")));
    };
    InTimeZone(utcZone, expectRange);
    InTimeZone(berlinZone, expectRange);
    InTimeZone(kolkataZone, expectRange);
    InTimeZone(losAngelesZone, expectRange);
}

TEST(IsValidDateTest, SameInstantIsValidWhereTheLocalYearHasBegun)
{
    constexpr time_t newYearInUtc = 1514764800;  // 2018-01-01 00:00:00
    InTimeZone(utcZone, [] { EXPECT_FALSE(IsValidDate(newYearInUtc - 1)); });
    InTimeZone(berlinZone, [] { EXPECT_TRUE(IsValidDate(newYearInUtc - 1)); });
    InTimeZone(kolkataZone, [] { EXPECT_TRUE(IsValidDate(newYearInUtc - 19800)); });
    InTimeZone(losAngelesZone, [] { EXPECT_FALSE(IsValidDate(newYearInUtc + 28799)); });
}

TEST(IsValidDateTest, ExtremeTimesAreNotValid)
{
    EXPECT_FALSE(IsValidDate(0));
    EXPECT_FALSE(IsValidDate(-1));
    EXPECT_FALSE(IsValidDate(std::numeric_limits<time_t>::min()));
    EXPECT_FALSE(IsValidDate(std::numeric_limits<time_t>::max()));
}

// ------------------------------------------------------------------------------------ GetDateTime

TEST(GetDateTimeTest, DayOfTheFirstIsCombinedWithTheClockOfTheSecond)
{
    const auto expectCombined = [] {
        EXPECT_EQ(
            DateISO(GetDateTime(Str2Time("2021-03-04 05:06:07"), Str2Time("2019-12-31 23:58:59"))),
            "2021-03-04 23:58:59");
        EXPECT_EQ(
            DateISO(GetDateTime(Str2Time("2020-02-29 23:59:59"), Str2Time("2021-01-01 00:00:00"))),
            "2020-02-29 00:00:00");
    };
    InTimeZone(utcZone, expectCombined);
    InTimeZone(berlinZone, expectCombined);
    InTimeZone(kolkataZone, expectCombined);
    InTimeZone(losAngelesZone, expectCombined);
}

TEST(GetDateTimeTest, SameTimeTwiceGivesThatTime)
{
    EXPECT_EQ(GetDateTime(march4, march4), march4);
}

TEST(GetDateTimeTest, ClockTimeStaysBetweenSummerAndWinter)
{
    const auto expectSameClock = [] {
        EXPECT_EQ(
            DateISO(GetDateTime(Str2Time("2021-07-04 12:00:00"), Str2Time("2021-01-04 08:30:15"))),
            "2021-07-04 08:30:15");
        EXPECT_EQ(
            DateISO(GetDateTime(Str2Time("2021-01-04 12:00:00"), Str2Time("2021-07-04 08:30:15"))),
            "2021-01-04 08:30:15");
    };
    InTimeZone(berlinZone, expectSameClock);
    InTimeZone(losAngelesZone, expectSameClock);
}

TEST(GetDateTimeTest, ClockTimeSkippedOnThatDayComesOutOneHourLater)
{
    InTimeZone(berlinZone, [] {
        EXPECT_EQ(
            DateISO(GetDateTime(Str2Time("2021-03-28 12:00:00"), Str2Time("2021-03-27 02:30:00"))),
            "2021-03-28 03:30:00");
    });
}

TEST(GetDateTimeTest, DaysAndClocksAreLocal)
{
    // 22:00 and 23:30 UTC of one day are two days in India.
    InTimeZone(kolkataZone, [] {
        EXPECT_EQ(DateISO(GetDateTime(1614808800, 1614814200)), "2021-03-04 05:00:00");
    });
}

TEST(GetDateTimeTest, TimeThatCannotBeBrokenDownGivesMinusOne)
{
    if constexpr (narrowTime) {
        GTEST_SKIP() << "every 32-bit time can be broken down";
    }
    constexpr time_t highest = std::numeric_limits<time_t>::max();

    EXPECT_EQ(GetDateTime(highest, march4), -1);
    EXPECT_EQ(GetDateTime(march4, highest), -1);
}

// ------------------------------------------------------------------------------------------- Date

TEST(DateTest, EmptyFormatStandsForTheDefaultWithoutABlankBehindTheComma)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(Date(march4, ""), "Thu,04 Mar 21 05:06:07+0000"); });
    InTimeZone(berlinZone, [] {
        EXPECT_EQ(Date(march4, ""), "Thu,04 Mar 21 06:06:07+0100");
        EXPECT_EQ(Date(1625375167, ""), "Sun,04 Jul 21 07:06:07+0200");
    });
    InTimeZone(kolkataZone, [] { EXPECT_EQ(Date(march4, ""), "Thu,04 Mar 21 10:36:07+0530"); });
    InTimeZone(losAngelesZone, [] { EXPECT_EQ(Date(march4, ""), "Wed,03 Mar 21 21:06:07-0800"); });
}

TEST(DateTest, BothInstantsOfARepeatedHourAreToldApart)
{
    InTimeZone(berlinZone, [] {
        EXPECT_EQ(Date(1635640200, "%H:%M %Z"), "02:30 CEST");
        EXPECT_EQ(Date(1635643800, "%H:%M %Z"), "02:30 CET");
    });
}

TEST(DateTest, FormatOfTheYearGivesFourDigits)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(Date(march4, "%Y"), "2021"); });
}

TEST(DateTest, TextWithoutConversionsComesBackAsItIs)
{
    EXPECT_EQ(Date(march4, "no conversion"), "no conversion");
    EXPECT_EQ(Date(march4, " "), " ");
}

TEST(DateTest, FormatOfTheCallerIsLeftAlone)
{
    const std::string format = "%Y";

    Date(march4, format);

    EXPECT_EQ(format, "%Y");
}

TEST(DateTest, TextIsWholeAtEveryLengthAroundTheUsualBuffer)
{
    for (std::size_t length = 120; length <= 520; ++length) {
        const std::string text(length, 'x');
        ASSERT_EQ(Date(march4, text), text);
    }
}

TEST(DateTest, ConversionsAtTheEndOfALongTextAreWhole)
{
    InTimeZone(utcZone, [] {
        const std::string text(126, 'x');
        EXPECT_EQ(Date(march4, text + "%Y"), text + "2021");
        EXPECT_EQ(Date(march4, text + "xx%"), text + "xx%");
        EXPECT_EQ(Date(march4, text + "xx%%"), text + "xx%");
    });
}

TEST(DateTest, VeryLongTextIsWhole)
{
    const std::string text(1000000, 'x');

    EXPECT_EQ(Date(march4, text), text);
}

TEST(DateTest, FieldWidthBeyondTheUsualBufferIsFilled)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(Date(march4, "%1000Y"), std::string(996, '0') + "2021"); });
}

TEST(DateTest, TextBeyondTheLargestOneComesBackEmpty)
{
    EXPECT_EQ(Date(march4, "%20000000Y"), "");
}

TEST(DateTest, FormatThatBeginsWithNulGivesAnEmptyText)
{
    EXPECT_EQ(Date(march4, Text("\0%Y")), "");
}

TEST(DateTest, FormatEndsAtItsFirstNul)
{
    InTimeZone(utcZone, [] {
        EXPECT_EQ(Date(march4, Text("%Y\0%m")), "2021");
        const std::string text(200, 'x');
        EXPECT_EQ(Date(march4, text + Text("\0%m")), text);
    });
}

TEST(DateTest, TimesBeforeTheEpochAreFormatted)
{
    InTimeZone(utcZone, [] {
        EXPECT_EQ(DateISO(-1), "1969-12-31 23:59:59");
        EXPECT_EQ(DateISO(-2147483647 - 1), "1901-12-13 20:45:52");
    });
}

TEST(DateTest, YearsOfFiveDigitsAreFormatted)
{
    if constexpr (narrowTime) {
        GTEST_SKIP() << "no 32-bit time lies that far away";
    }
    InTimeZone(utcZone, [] {
        EXPECT_EQ(DateISO(static_cast<time_t>(253402300800)), "10000-01-01 00:00:00");
    });
}

TEST(DateTest, TimeThatCannotBeBrokenDownGivesAnEmptyText)
{
    if constexpr (narrowTime) {
        GTEST_SKIP() << "every 32-bit time can be broken down";
    }
    EXPECT_EQ(Date(std::numeric_limits<time_t>::max(), "%Y"), "");
    EXPECT_EQ(Date(std::numeric_limits<time_t>::min(), ""), "");
    EXPECT_EQ(DateISO(std::numeric_limits<time_t>::max()), "");
}

TEST(DateTest, DateISOIsYearMonthDayBlankClock)
{
    InTimeZone(utcZone, [] { EXPECT_EQ(DateISO(march4), "2021-03-04 05:06:07"); });
    InTimeZone(losAngelesZone, [] { EXPECT_EQ(DateISO(march4), "2021-03-03 21:06:07"); });
}

TEST(DateTest, DateISOAndStr2TimeAreInversesAllYearRound)
{
    const auto expectInverse = [] {
        for (time_t t = 1609502400; t < 1609502400 + time_t{365} * 86400; t += 41413) {
            const time_t back = Str2Time(DateISO(t));
            // In the hour that is repeated both instants have the same text.
            EXPECT_EQ(DateISO(back), DateISO(t));
            EXPECT_EQ((back - t) % 3600, 0);
        }
    };
    InTimeZone(utcZone, expectInverse);
    InTimeZone(berlinZone, expectInverse);
    InTimeZone(kolkataZone, expectInverse);
    InTimeZone(losAngelesZone, expectInverse);
}

TEST(DateTest, NewDateFormatsTheCurrentTime)
{
    const time_t before = std::time(nullptr);
    const std::string text = NewDate("%s");
    const time_t after = std::time(nullptr);

    const long long found = std::strtoll(text.c_str(), nullptr, 10);
    EXPECT_GE(found, before);
    EXPECT_LE(found, after);
}

TEST(DateTest, NewDateWithAnEmptyFormatUsesTheDefault)
{
    time_t before = 0;
    std::string text;
    do {  // again, if a second ends in between
        before = std::time(nullptr);
        text = NewDate("");
    } while (std::time(nullptr) != before);

    EXPECT_EQ(text, Date(before, "%a,%d %b %y %T%z"));
}

TEST(DateTest, ThreadsFormatAndCombineAtTheSameTime)
{
    FixZoneForThreads();
    const std::string expected = DateISO(march4);
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                wrong += DateISO(march4) == expected ? 0 : 1;
                wrong += GetDateTime(march4, march4) == march4 ? 0 : 1;
                wrong += IsValidDate(march4) ? 0 : 1;
                wrong += NewDate("%Y").size() == 4 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace Tolvex::Util
