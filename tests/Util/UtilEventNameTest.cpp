#include "Tolvex/Util/UtilEventName.h"

#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/TimeZone.h"

namespace Tolvex::Util {
namespace {

constexpr time_t untouched = 123456789;

/// The time that is read from a name, as "2021-03-04 05:06:06"; "none" if the result is false.
std::string ReadBack(const std::string& name)
{
    time_t t = untouched;
    if (!GetEventTimeFromFileName(name, t)) {
        EXPECT_EQ(t, untouched);
        return "none";
    }
    return DateISO(t);
}

TEST(UtilEventNameTest, EventTimeIsDayMonthYearHourMinuteSecondInTwelveDigits)
{
    Support::InTimeZone(Support::utcZone,
                        [] { EXPECT_EQ(EventTimeToString(1614834367), "040321050607"); });
}

TEST(UtilEventNameTest, EventTimeIsLocal)
{
    Support::InTimeZone(Support::berlinZone,
                        [] { EXPECT_EQ(EventTimeToString(1614834367), "040321060607"); });
    Support::InTimeZone(Support::kolkataZone,
                        [] { EXPECT_EQ(EventTimeToString(1614834367), "040321103607"); });
    Support::InTimeZone(Support::losAngelesZone,
                        [] { EXPECT_EQ(EventTimeToString(1614834367), "030321210607"); });
}

TEST(UtilEventNameTest, EventTimeThatCannotBeBrokenDownIsEmpty)
{
    if constexpr (sizeof(time_t) == 4) {
        GTEST_SKIP() << "every 32-bit time can be broken down";
    }
    EXPECT_EQ(EventTimeToString(std::numeric_limits<time_t>::max()), "");
}

TEST(UtilEventNameTest, FileNameIsPrefixTimeFullStopExtension)
{
    Support::InTimeZone(Support::utcZone, [] {
        EXPECT_EQ(BuildEventFileName("EVENT_FRONT_", 1614834367, "mp4"),
                  "EVENT_FRONT_040321050607.mp4");
    });
}

TEST(UtilEventNameTest, FileNameOfEmptyPartsKeepsTheFullStop)
{
    Support::InTimeZone(Support::utcZone,
                        [] { EXPECT_EQ(BuildEventFileName("", 1614834367, ""), "040321050607."); });
}

TEST(UtilEventNameTest, FileNameTakesPercentSignsAndExtensionsWithAFullStopAsTheyAre)
{
    Support::InTimeZone(Support::utcZone, [] {
        EXPECT_EQ(BuildEventFileName("100%d/", 1614834367, ".tar.gz"),
                  "100%d/040321050607..tar.gz");
    });
}

TEST(UtilEventNameTest, SecondReadBackEqualsTheMinute)
{
    Support::InTimeZone(Support::utcZone, [] {
        time_t t = 0;
        EXPECT_TRUE(GetEventTimeFromFileName("EVENT_FRONT_040321050607.mp4", t));
        EXPECT_EQ(t, 1614834366);
        EXPECT_EQ(ReadBack("EVENT_FRONT_040321055900.mp4"), "2021-03-04 05:59:59");
    });
}

struct NameCase
{
    const char* label;
    std::string name;
    const char* expected;
};

class UtilEventNameReadTest : public testing::TestWithParam<NameCase>
{
};

TEST_P(UtilEventNameReadTest, NameReadsAs)
{
    Support::InTimeZone(Support::utcZone,
                        [] { EXPECT_EQ(ReadBack(GetParam().name), GetParam().expected); });
}

const std::string prefix = "EVENT_FRONT_";

INSTANTIATE_TEST_SUITE_P(
    Names, UtilEventNameReadTest,
    testing::Values(
        NameCase{"Empty", "", "none"},                               //
        NameCase{"PrefixAlone", prefix, "none"},                     //
        NameCase{"NineteenCharacters", prefix + "0403210", "none"},  //
        NameCase{"TwentyCharactersMinuteAndSecondZero", prefix + "04032105", "2021-03-04 05:00:00"},
        NameCase{"OneDigitOfTheMinute", prefix + "040321055", "2021-03-04 05:05:05"},
        NameCase{"WithoutSeconds", prefix + "0403210506", "2021-03-04 05:06:06"},
        NameCase{"SecondsIgnored", prefix + "040321050659", "2021-03-04 05:06:06"},
        NameCase{"LettersForSeconds", prefix + "0403210506xx.mp4", "2021-03-04 05:06:06"},
        NameCase{"OtherPrefixOfTwelve", "0123456789ab040321050607", "2021-03-04 05:06:06"},
        NameCase{"FirstYear", prefix + "010100000000", "2000-01-01 00:00:00"},
        NameCase{"LeapDay", prefix + "290220000000", "2020-02-29 00:00:00"},
        NameCase{"NoLeapDay", prefix + "290221000000", "2021-03-01 00:00:00"},
        NameCase{"DayZero", prefix + "000321000000", "2021-02-28 00:00:00"},
        NameCase{"MonthZero", prefix + "040021000000", "2020-12-04 00:00:00"},
        NameCase{"MonthThirteen", prefix + "041321000000", "2022-01-04 00:00:00"},
        NameCase{"HourTwentyFour", prefix + "040321240000", "2021-03-05 00:00:00"},
        NameCase{"MinuteNinetyNine", prefix + "040321059900", "2021-03-04 06:40:39"},
        NameCase{"LettersReadAsZero", prefix + "xxxxxxxxxxxx", "1999-11-30 00:00:00"},
        NameCase{"DigitBeforeLetter", prefix + "4x3x1x5x6x", "2001-03-04 05:06:06"},
        NameCase{"LetterBeforeDigit", prefix + "x4032105x6", "2021-02-28 05:00:00"},
        NameCase{"BlankBeforeDigit", prefix + " 4 321 5 6", "2021-03-04 05:06:06"},
        NameCase{"Plus", prefix + "+4+321+5+6", "2021-03-04 05:06:06"},
        NameCase{"MinusCountsBackwards", prefix + "040321-106", "2021-03-03 23:06:06"},
        NameCase{"MinusMonth", prefix + "04-121000000", "2020-11-04 00:00:00"},
        NameCase{"MinusYear", prefix + "0403-1000000", "1999-03-04 00:00:00"},
        NameCase{"HexIsNotRead", prefix + "0x0321050607", "2021-02-28 05:06:06"},
        NameCase{"OctalIsNotRead", prefix + "080321080908", "2021-03-08 08:09:09"},
        NameCase{"NulInAField", prefix + std::string("\0004032105", 8), "2021-02-28 05:00:00"},
        NameCase{"HighBytes", prefix + "\xff\xff" + "0321050607", "2021-02-28 05:06:06"}),
    [](const testing::TestParamInfo<NameCase>& row) { return std::string(row.param.label); });

TEST(UtilEventNameTest, YearNinetyNineIs2099WhereTheTimeTypeReachesIt)
{
    Support::InTimeZone(Support::utcZone, [] {
        time_t t = 0;
        EXPECT_TRUE(GetEventTimeFromFileName(prefix + "311299235900", t));
        const std::int64_t expected = sizeof(time_t) == 4 ? -1 : 4102444799;
        EXPECT_EQ(std::int64_t{t}, expected);
    });
}

TEST(UtilEventNameTest, VeryLongNameIsRead)
{
    Support::InTimeZone(Support::utcZone, [] {
        EXPECT_EQ(ReadBack(prefix + "040321050607" + std::string(100000, 'x')),
                  "2021-03-04 05:06:06");
    });
}

TEST(UtilEventNameTest, NamesAreReadAsLocalTimeInWinterAndInSummer)
{
    const auto expectRoundTrip = [] {
        EXPECT_EQ(ReadBack(prefix + "040121050000"), "2021-01-04 05:00:00");
        EXPECT_EQ(ReadBack(prefix + "040721050000"), "2021-07-04 05:00:00");
    };
    Support::InTimeZone(Support::berlinZone, expectRoundTrip);
    Support::InTimeZone(Support::kolkataZone, expectRoundTrip);
    Support::InTimeZone(Support::losAngelesZone, expectRoundTrip);
    Support::InTimeZone(Support::berlinZone, [] {
        time_t t = 0;
        EXPECT_TRUE(GetEventTimeFromFileName(prefix + "040721050000", t));
        EXPECT_EQ(t, 1625367600);
    });
}

TEST(UtilEventNameTest, TimeSkippedBySummerTimeComesOutOneHourLater)
{
    Support::InTimeZone(Support::berlinZone, [] {
        EXPECT_EQ(ReadBack(prefix + "280321020000"), "2021-03-28 03:00:00");
    });
}

TEST(UtilEventNameTest, TimeRepeatedInAutumnIsOneOfItsTwoInstants)
{
    Support::InTimeZone(Support::berlinZone, [] {
        time_t t = 0;
        EXPECT_TRUE(GetEventTimeFromFileName(prefix + "311021023000", t));
        EXPECT_TRUE(t == 1635640230 || t == 1635640230 + 3600) << t;
    });
}

TEST(UtilEventNameTest, BuiltNamesAreReadBackToTheMinuteAllYearRound)
{
    Support::InTimeZone(Support::losAngelesZone, [] {
        constexpr time_t firstOfJanuary = 1609488000;
        constexpr time_t nextYear = firstOfJanuary + time_t{365} * 86400;
        constexpr time_t step = 86400 + 3660;
        for (time_t t = firstOfJanuary; t < nextYear; t += step) {
            const std::string name = BuildEventFileName(prefix, t, "mp4");
            time_t back = 0;
            ASSERT_TRUE(GetEventTimeFromFileName(name, back));
            // In the hour that is repeated, a difference of one hour is right.
            const time_t difference = back - back % 60 - (t - t % 60);
            EXPECT_EQ(difference % 3600, 0) << name;
            EXPECT_EQ(Date(back, "%d%m%y%H%M"), Date(t, "%d%m%y%H%M"));
        }
    });
}

}  // namespace
}  // namespace Tolvex::Util
