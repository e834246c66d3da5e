#include "Tolvex/Util/SunCalculator.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/Pace.h"

namespace {

using Tolvex::Util::SunCalculator;
using Tolvex::Util::SunTimes;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();
constexpr double pi = 3.14159265358979323846;
constexpr double singlePi = 3.1415927410125732;
constexpr double singleTau = 6.2831854820251465;

constexpr std::time_t summerSolstice = 1719057600;  // 2024-06-22 12:00:00 UTC
constexpr std::time_t winterSolstice = 1703160000;  // 2023-12-21 12:00:00 UTC

/// The six constants, in the order of the members.
using Constants = std::array<double, 6>;
enum ConstantIndex : std::size_t
{
    dayMs,
    j1970,
    j2000,
    rad,
    e,
    j0
};

SunCalculator WithChanged(ConstantIndex index, double value)
{
    auto constants = std::bit_cast<Constants>(SunCalculator());
    constants.at(index) = value;
    return std::bit_cast<SunCalculator>(constants);
}

// ------------------------------------------------------------------------------ object, constants

TEST(SunCalculatorTest, SixConstantsInOrderAreTheWholeState)
{
    static_assert(sizeof(SunCalculator) == sizeof(Constants));
    static_assert(!std::is_polymorphic_v<SunCalculator>);

    const auto constants = std::bit_cast<Constants>(SunCalculator());

    EXPECT_EQ(constants[dayMs], 86400000.0);
    EXPECT_EQ(constants[j1970], 2440588.0);
    EXPECT_EQ(constants[j2000], 2451545.0);
    EXPECT_EQ(constants[rad], pi / 180.0);
    EXPECT_EQ(constants[e], 23.4397 * (pi / 180.0));
    EXPECT_EQ(constants[j0], 0.0009);
}

TEST(SunCalculatorTest, FormulasReadTheConstantsThroughTheMembers)
{
    EXPECT_DOUBLE_EQ(WithChanged(dayMs, 1000).ToJulian(7), 2440594.5);
    EXPECT_EQ(WithChanged(dayMs, 1000).FromJulian(2440594.5), 7);
    EXPECT_DOUBLE_EQ(WithChanged(j1970, 100.5).ToJulian(86400), 101.0);
    EXPECT_EQ(WithChanged(j1970, 100.5).FromJulian(101.0), 86400);
    EXPECT_DOUBLE_EQ(WithChanged(j2000, 0).ToDays(0), 2440587.5);
    EXPECT_DOUBLE_EQ(WithChanged(j2000, 5).SolarTransitJ(2, 0, 0), 7);
    EXPECT_DOUBLE_EQ(WithChanged(rad, 2).SolarMeanAnomaly(0), 2 * 357.5291);
    EXPECT_DOUBLE_EQ(WithChanged(rad, 2).EclipticLongitude(0), 2 * 102.9372 + singlePi);
    EXPECT_DOUBLE_EQ(WithChanged(e, 0.5).Declination(pi / 2, 0), 0.5);
    EXPECT_DOUBLE_EQ(WithChanged(j0, 0.25).JulianCycle(3.7, 0), 3);
    EXPECT_DOUBLE_EQ(WithChanged(j0, 0.25).ApproxTransit(0, 0, 1), 1.25);
}

TEST(SunCalculatorTest, EveryOperationIsOfferedByAConstantObject)
{
    const SunCalculator calculator;
    const std::time_t now = summerSolstice;

    EXPECT_GT(calculator.GetTimes(now, 48.0, 11.0).sunset,
              calculator.GetTimes(now, 48.0, 11.0).sunrise);
}

// -------------------------------------------------------------------------------- Julian dates

TEST(SunCalculatorTest, ToJulianGivesThePublishedDates)
{
    const SunCalculator calculator;

    EXPECT_EQ(calculator.ToJulian(0), 2440587.5);
    EXPECT_EQ(calculator.ToJulian(43200), 2440588.0);
    EXPECT_EQ(calculator.ToJulian(-43200), 2440587.0);
    EXPECT_EQ(calculator.ToJulian(946728000), 2451545.0);
    EXPECT_EQ(calculator.ToJulian(1704067200), 2460310.5);  // 2024-01-01 00:00:00 UTC
}

TEST(SunCalculatorTest, ToDaysOfTheEpochIsZero)
{
    const SunCalculator calculator;

    EXPECT_EQ(calculator.ToDays(946728000), 0.0);
    EXPECT_EQ(calculator.ToDays(946728000 + 86400), 1.0);
    EXPECT_EQ(calculator.ToDays(946728000 - 43200), -0.5);
}

TEST(SunCalculatorTest, ToJulianTakesEveryTimeThatTheTypeHolds)
{
    const SunCalculator calculator;
    const std::time_t latest = std::numeric_limits<std::time_t>::max();
    const std::time_t earliest = std::numeric_limits<std::time_t>::min();

    EXPECT_GE(calculator.ToJulian(latest), calculator.ToJulian(highest));
    EXPECT_LE(calculator.ToJulian(earliest), calculator.ToJulian(lowest));
    EXPECT_EQ(calculator.FromJulian(calculator.ToJulian(latest)), highest);
    EXPECT_EQ(calculator.FromJulian(calculator.ToJulian(earliest)), lowest);
}

TEST(SunCalculatorTest, ToJulianIsExactBeyond32BitsWhereTheTypeIsWider)
{
    if (sizeof(std::time_t) <= sizeof(std::int32_t)) {
        GTEST_SKIP() << "time_t has 32 bits";
    }
    const SunCalculator calculator;
    constexpr std::int64_t yearThreeThousand = 32503680000;  // 3000-01-01 00:00:00 UTC
    constexpr std::int64_t lastExact = std::numeric_limits<std::int64_t>::max() / 1000;

    EXPECT_EQ(calculator.ToJulian(static_cast<std::time_t>(yearThreeThousand)), 2816787.5);
    EXPECT_EQ(calculator.ToJulian(static_cast<std::time_t>(-yearThreeThousand)), 2064387.5);
    for (const std::int64_t time : {lastExact, -lastExact}) {
        EXPECT_DOUBLE_EQ(calculator.ToJulian(static_cast<std::time_t>(time)),
                         static_cast<double>(time) / 86400 + 2440587.5);
    }
}

TEST(SunCalculatorTest, FromJulianUndoesToJulianAtTheExtremes)
{
    const SunCalculator calculator;

    for (const std::int32_t time :
         {lowest, lowest + 1, lowest + 2, -1, 0, 1, highest - 2, highest - 1, highest}) {
        EXPECT_EQ(calculator.FromJulian(calculator.ToJulian(time)), time);
    }
}

TEST(SunCalculatorTest, FromJulianUndoesToJulianForEverySecondOfADay)
{
    const SunCalculator calculator;
    constexpr std::time_t firstSecond = 1718928000;  // 2024-06-21 00:00:00 UTC

    for (std::time_t time = firstSecond; time < firstSecond + 86400; ++time) {
        ASSERT_EQ(calculator.FromJulian(calculator.ToJulian(time)), time);
        ASSERT_EQ(calculator.FromJulian(calculator.ToJulian(-time)), -time);
    }
}

TEST(SunCalculatorTest, FromJulianUndoesToJulianForAMillionTimesOfTheWholeRange)
{
    const SunCalculator calculator;
    constexpr std::int64_t count = Tolvex::Support::isEmulated ? 100000 : 1000000;
    constexpr std::int64_t step = 4294967296 / count;

    for (std::int64_t index = 0; index < count; ++index) {
        // The second part goes through all remainders, so that the steps follow no pattern.
        const std::int64_t offset = index * 7919 % step;
        const auto time = static_cast<std::time_t>(lowest + index * step + offset);
        ASSERT_EQ(calculator.FromJulian(calculator.ToJulian(time)), time);
    }
}

TEST(SunCalculatorTest, FromJulianTruncatesTowardZero)
{
    const SunCalculator calculator;
    constexpr double second = 1.0 / 86400.0;

    EXPECT_EQ(calculator.FromJulian(2440587.5 + 1.5 * second), 1);
    EXPECT_EQ(calculator.FromJulian(2440587.5 + 1.999 * second), 1);
    EXPECT_EQ(calculator.FromJulian(2440587.5 - 1.5 * second), -1);
    EXPECT_EQ(calculator.FromJulian(2440587.5 - 1.999 * second), -1);
    EXPECT_EQ(calculator.FromJulian(2440587.5 + 0.999 * second), 0);
    EXPECT_EQ(calculator.FromJulian(2440587.5 - 0.999 * second), 0);
}

/// A Julian date as a whole number of 2^-31 days, which is the step of a double of that size. All
/// results computed from it are exact.
class ExactJulian
{
public:
    explicit ExactJulian(double julianDate)
        : secondsTimesTwoTo31(static_cast<std::int64_t>((julianDate - 2440587.5) * stepsPerDay) *
                              86400)
    {
    }

    /// Distance to the nearest whole second, in 2^-31 seconds.
    std::int64_t Distance() const { return std::abs(secondsTimesTwoTo31 - Nearest() * unit); }

    std::int64_t Nearest() const
    {
        const std::int64_t half = secondsTimesTwoTo31 < 0 ? -unit / 2 : unit / 2;
        return (secondsTimesTwoTo31 + half) / unit;
    }

    std::int64_t Truncated() const { return secondsTimesTwoTo31 / unit; }

    static constexpr std::int64_t unit = std::int64_t{1} << 31;

private:
    static constexpr double stepsPerDay = 2147483648.0;

    std::int64_t secondsTimesTwoTo31;
};

TEST(SunCalculatorTest, FromJulianIsTheNearestWholeSecondWithinTheRepresentationError)
{
    const SunCalculator calculator;
    constexpr auto microsecond = static_cast<double>(ExactJulian::unit) / 1e6;
    std::size_t snapped = 0;
    std::size_t truncated = 0;

    for (std::int64_t time = lowest + 1; time < highest; time += 429496) {
        double julianDate = calculator.ToJulian(static_cast<std::time_t>(time));
        for (int step = 0; step < 4; ++step) {
            const ExactJulian exact(julianDate);
            const double microseconds = static_cast<double>(exact.Distance()) / microsecond;
            if (microseconds < 24.0) {
                ASSERT_EQ(calculator.FromJulian(julianDate), exact.Nearest());
                ++snapped;
            } else if (microseconds > 26.0) {
                ASSERT_EQ(calculator.FromJulian(julianDate), exact.Truncated());
                ++truncated;
            }
            julianDate = std::nextafter(julianDate, 0.0);
        }
    }
    EXPECT_GT(snapped, 10000U);
    EXPECT_GT(truncated, 20000U);
}

TEST(SunCalculatorTest, FromJulianSaturatesTo32BitsWhateverTheWidthOfTheTimeType)
{
    const SunCalculator calculator;

    EXPECT_EQ(calculator.FromJulian(calculator.ToJulian(highest) + 1), highest);
    EXPECT_EQ(calculator.FromJulian(calculator.ToJulian(lowest) - 1), lowest);
    EXPECT_EQ(calculator.FromJulian(1e300), highest);
    EXPECT_EQ(calculator.FromJulian(-1e300), lowest);
    EXPECT_EQ(calculator.FromJulian(infinite), highest);
    EXPECT_EQ(calculator.FromJulian(-infinite), lowest);
}

TEST(SunCalculatorTest, FromJulianMakesZeroOfWhatIsNotANumber)
{
    EXPECT_EQ(SunCalculator().FromJulian(notANumber), 0);
    EXPECT_EQ(SunCalculator().FromJulian(-notANumber), 0);
}

// ------------------------------------------------------------------------------------- formulas

TEST(SunCalculatorTest, SolarMeanAnomalyGrowsByTheDailyMotion)
{
    const SunCalculator calculator;

    EXPECT_DOUBLE_EQ(calculator.SolarMeanAnomaly(0), 357.5291 * pi / 180);
    EXPECT_DOUBLE_EQ(calculator.SolarMeanAnomaly(1), 358.51470028 * pi / 180);
    EXPECT_DOUBLE_EQ(calculator.SolarMeanAnomaly(-1000.5), (357.5291 - 986.09308014) * pi / 180);
}

TEST(SunCalculatorTest, EclipticLongitudeAddsTheEquationOfTheCentreAndThePerihelion)
{
    const SunCalculator calculator;

    for (const double anomaly : {-7.5, -1.0, 0.0, 0.3, 1.5, 6.24, 100.0}) {
        const double centreDegrees = 1.9148 * std::sin(anomaly) + 0.02 * std::sin(2 * anomaly) +
                                     0.0003 * std::sin(3 * anomaly);
        const double expected = anomaly + centreDegrees * pi / 180 + 102.9372 * pi / 180 + singlePi;
        EXPECT_NEAR(calculator.EclipticLongitude(anomaly), expected, 1e-13);
    }
}

TEST(SunCalculatorTest, EclipticLongitudeKeepsTheSinglePrecisionPi)
{
    const double longitude = SunCalculator().EclipticLongitude(0);

    EXPECT_NEAR(longitude - 102.9372 * pi / 180, singlePi, 1e-14);
    EXPECT_GT(longitude - 102.9372 * pi / 180 - pi, 8e-8);
}

TEST(SunCalculatorTest, DeclinationFollowsBothEclipticCoordinates)
{
    const SunCalculator calculator;
    constexpr double obliquity = 23.4397 * pi / 180;

    EXPECT_DOUBLE_EQ(calculator.Declination(0, 0), 0);
    EXPECT_DOUBLE_EQ(calculator.Declination(pi / 2, 0), obliquity);
    EXPECT_DOUBLE_EQ(calculator.Declination(-pi / 2, 0), -obliquity);
    EXPECT_DOUBLE_EQ(calculator.Declination(0, pi / 2), pi / 2 - obliquity);
    EXPECT_DOUBLE_EQ(calculator.Declination(1.1, 0.4),
                     std::asin(std::sin(0.4) * std::cos(obliquity) +
                               std::cos(0.4) * std::sin(obliquity) * std::sin(1.1)));
}

TEST(SunCalculatorTest, JulianCycleRoundsHalfAwayFromZero)
{
    // With this correction the sum is exact, so the halves are halves.
    const SunCalculator calculator = WithChanged(j0, 0);

    EXPECT_EQ(calculator.JulianCycle(0.5, 0), 1);
    EXPECT_EQ(calculator.JulianCycle(1.5, 0), 2);
    EXPECT_EQ(calculator.JulianCycle(2.5, 0), 3);
    EXPECT_EQ(calculator.JulianCycle(-0.5, 0), -1);
    EXPECT_EQ(calculator.JulianCycle(-2.5, 0), -3);
    EXPECT_EQ(calculator.JulianCycle(2.4999, 0), 2);
    EXPECT_EQ(calculator.JulianCycle(2.5, singleTau / 4), 2);
}

TEST(SunCalculatorTest, JulianCycleSubtractsTheTransitCorrection)
{
    const SunCalculator calculator;

    EXPECT_EQ(calculator.JulianCycle(10.5008, 0), 10);
    EXPECT_EQ(calculator.JulianCycle(10.5010, 0), 11);
}

TEST(SunCalculatorTest, JulianCycleKeepsTheSinglePrecisionTau)
{
    // With the exact quotient, one half, 0.499999993 would be rounded; the other one is smaller.
    EXPECT_EQ(SunCalculator().JulianCycle(0.0009 + 0.999999993, pi), 1);
}

TEST(SunCalculatorTest, ApproxTransitKeepsTheSinglePrecisionTau)
{
    const SunCalculator calculator;

    EXPECT_DOUBLE_EQ(calculator.ApproxTransit(0, 0, 100), 100.0009);
    EXPECT_NEAR(calculator.ApproxTransit(1.5, 0.7, 3), 0.0009 + 2.2 / singleTau + 3, 1e-15);
    EXPECT_GT(std::abs(calculator.ApproxTransit(1.5, 0.7, 3) - (3.0009 + 2.2 / (2 * pi))), 9e-9);
}

TEST(SunCalculatorTest, SolarTransitAppliesTheEquationOfTime)
{
    const SunCalculator calculator;

    EXPECT_DOUBLE_EQ(calculator.SolarTransitJ(0.25, 0, 0), 2451545.25);
    EXPECT_NEAR(calculator.SolarTransitJ(0, pi / 2, 0), 2451545 + 0.0053, 1e-9);
    EXPECT_NEAR(calculator.SolarTransitJ(0, 0, pi / 4), 2451545 - 0.0069, 1e-9);
    EXPECT_NEAR(calculator.SolarTransitJ(7, -1, 2),
                2451552 + 0.0053 * std::sin(-1) - 0.0069 * std::sin(4), 1e-9);
}

TEST(SunCalculatorTest, HourAngleIsAQuarterTurnWhereDayAndNightAreEqual)
{
    const SunCalculator calculator;

    EXPECT_DOUBLE_EQ(calculator.HourAngle(0, 0.8, 0), pi / 2);
    EXPECT_DOUBLE_EQ(calculator.HourAngle(0, 0, 0.4), pi / 2);
    EXPECT_DOUBLE_EQ(calculator.HourAngle(-0.0145, 0.9, -0.3),
                     std::acos((std::sin(-0.0145) - std::sin(0.9) * std::sin(-0.3)) /
                               (std::cos(0.9) * std::cos(-0.3))));
}

TEST(SunCalculatorTest, HourAngleIsNotANumberWhereTheAltitudeIsNeverReached)
{
    const SunCalculator calculator;

    EXPECT_TRUE(std::isnan(calculator.HourAngle(0, 1.4, 0.4)));
    EXPECT_TRUE(std::isnan(calculator.HourAngle(0, 1.4, -0.4)));
}

TEST(SunCalculatorTest, GetSetIsTheTransitOfTheHourAngle)
{
    const SunCalculator calculator;
    constexpr double altitude = -0.0145;
    constexpr double west = -0.2;
    constexpr double north = 0.84;
    constexpr double declination = 0.35;
    constexpr double cycle = 8938;
    constexpr double anomaly = 2.9;
    constexpr double longitude = 1.6;

    const double hourAngle = calculator.HourAngle(altitude, north, declination);
    const double approxSet = calculator.ApproxTransit(hourAngle, west, cycle);

    EXPECT_EQ(calculator.GetSetJ(altitude, west, north, declination, cycle, anomaly, longitude),
              calculator.SolarTransitJ(approxSet, anomaly, longitude));
}

// ------------------------------------------------------------------------------------- GetTimes

/// The steps of GetTimes(), computed from the formulas.
struct SolarDay
{
    double noon;
    double set;

    SolarDay(const SunCalculator& calculator, std::time_t date, double latitude, double longitude,
             double radians = pi / 180)
    {
        const double west = -radians * longitude;
        const double cycle = calculator.JulianCycle(calculator.ToDays(date), west);
        const double approxNoon = calculator.ApproxTransit(0, west, cycle);
        const double anomaly = calculator.SolarMeanAnomaly(approxNoon);
        const double ecliptic = calculator.EclipticLongitude(anomaly);
        const double declination = calculator.Declination(ecliptic, 0);
        noon = calculator.SolarTransitJ(approxNoon, anomaly, ecliptic);
        set = calculator.GetSetJ(-0.833 * radians, west, radians * latitude, declination, cycle,
                                 anomaly, ecliptic);
    }
};

TEST(SunCalculatorTest, SunriseAndSunsetLieAsFarFromTheTransit)
{
    const SunCalculator calculator;

    for (std::time_t date = 0; date < 2000000000; date += 12345678) {
        const SolarDay day(calculator, date, 47.4, 8.5);
        const double rise = day.noon - (day.set - day.noon);
        ASSERT_EQ(day.noon - rise, day.set - day.noon);

        const SunTimes times = calculator.GetTimes(date, 47.4, 8.5);

        // One second: the compilers of this program and of the library may round differently.
        ASSERT_NEAR(static_cast<double>(times.sunrise - calculator.FromJulian(rise)), 0, 1);
        ASSERT_NEAR(static_cast<double>(times.sunset - calculator.FromJulian(day.set)), 0, 1);
    }
}

TEST(SunCalculatorTest, GetTimesReadsTheRadiansOfADegreeThroughTheMember)
{
    constexpr double radiansOfAGon = pi / 200;
    const SunCalculator calculator = WithChanged(rad, radiansOfAGon);
    const SolarDay day(calculator, summerSolstice, 50, 10, radiansOfAGon);

    const SunTimes times = calculator.GetTimes(summerSolstice, 50, 10);

    EXPECT_NE(times.sunset, 0);
    EXPECT_NEAR(static_cast<double>(times.sunset - calculator.FromJulian(day.set)), 0, 1);
    const auto noon = static_cast<double>(calculator.FromJulian(day.noon));
    EXPECT_NEAR(static_cast<double>(times.sunrise) - noon, noon - static_cast<double>(times.sunset),
                4);
}

TEST(SunCalculatorTest, EveryMomentWithinHalfADayOfNoonGivesTheSameDay)
{
    const SunCalculator calculator;
    constexpr double longitude = 11.58;
    constexpr std::time_t noon = summerSolstice - 2779 + 78;  // mean noon, transit correction
    const SunTimes day = calculator.GetTimes(noon, 48.14, longitude);

    for (const std::time_t offset : {-43190, -20000, -1, 1, 3600, 43190}) {
        EXPECT_EQ(calculator.GetTimes(noon + offset, 48.14, longitude).sunrise, day.sunrise);
        EXPECT_EQ(calculator.GetTimes(noon + offset, 48.14, longitude).sunset, day.sunset);
    }
    EXPECT_GT(calculator.GetTimes(noon + 43210, 48.14, longitude).sunrise, day.sunset);
    EXPECT_LT(calculator.GetTimes(noon - 43210, 48.14, longitude).sunset, day.sunrise);
}

TEST(SunCalculatorTest, PolarDayAndPolarNightGiveZeroAndZero)
{
    const SunCalculator calculator;

    for (const std::time_t date : {summerSolstice, winterSolstice}) {
        for (const double latitude : {80.0, -80.0, 89.999, -89.999, 90.0, -90.0}) {
            EXPECT_EQ(calculator.GetTimes(date, latitude, 20.0).sunrise, 0);
            EXPECT_EQ(calculator.GetTimes(date, latitude, 20.0).sunset, 0);
        }
    }
}

TEST(SunCalculatorTest, PlacesThatAreNotNumbersGiveZeroAndZero)
{
    const SunCalculator calculator;

    for (const double odd : {notANumber, infinite, -infinite}) {
        EXPECT_EQ(calculator.GetTimes(summerSolstice, odd, 0).sunrise, 0);
        EXPECT_EQ(calculator.GetTimes(summerSolstice, odd, 0).sunset, 0);
        EXPECT_EQ(calculator.GetTimes(summerSolstice, 0, odd).sunrise, 0);
        EXPECT_EQ(calculator.GetTimes(summerSolstice, 0, odd).sunset, 0);
    }
}

TEST(SunCalculatorTest, BothSidesOfTheDateLineHaveOneSun)
{
    const SunCalculator calculator;

    for (std::time_t noonAtTheLine = summerSolstice - 43200;
         noonAtTheLine < summerSolstice + 864000; noonAtTheLine += 86400) {
        const SunTimes east = calculator.GetTimes(noonAtTheLine, -17.0, 180.0);
        const SunTimes west = calculator.GetTimes(noonAtTheLine, -17.0, -180.0);
        EXPECT_NEAR(static_cast<double>(east.sunrise - west.sunrise), 0, 1);
        EXPECT_NEAR(static_cast<double>(east.sunset - west.sunset), 0, 1);

        // A tenth of a degree of longitude is 24 s of time.
        const SunTimes lineWest = calculator.GetTimes(noonAtTheLine, -17.0, 179.9);
        const SunTimes lineEast = calculator.GetTimes(noonAtTheLine, -17.0, -179.9);
        EXPECT_NEAR(static_cast<double>(lineWest.sunrise - lineEast.sunrise), 48, 2);
        EXPECT_NEAR(static_cast<double>(lineWest.sunset - lineEast.sunset), 48, 2);
    }
}

TEST(SunCalculatorTest, LongitudesBeyondHalfATurnAreThePlaceOneTurnBack)
{
    const SunCalculator calculator;
    constexpr std::time_t noon = summerSolstice + 40000;  // near noon at 170 degrees west

    const SunTimes beyond = calculator.GetTimes(noon, 20.0, 190.0);
    const SunTimes within = calculator.GetTimes(noon, 20.0, -170.0);

    EXPECT_NEAR(static_cast<double>(beyond.sunrise - within.sunrise), 0, 1);
    EXPECT_NEAR(static_cast<double>(beyond.sunset - within.sunset), 0, 1);
}

TEST(SunCalculatorTest, DatesAtTheEndsOfTheRangeSaturate)
{
    const SunCalculator calculator;

    const SunTimes first = calculator.GetTimes(lowest, 10.0, -180.0);
    const SunTimes last = calculator.GetTimes(highest, 10.0, 180.0);

    EXPECT_GE(first.sunrise, lowest);
    EXPECT_LT(first.sunrise, lowest + 86400);
    EXPECT_LE(last.sunset, highest);
    EXPECT_GT(last.sunset, highest - 86400);
    for (const double longitude : {-180.0, -90.0, 0.0, 90.0, 180.0}) {
        EXPECT_LE(calculator.GetTimes(lowest, 10.0, longitude).sunrise, lowest + 86400);
        EXPECT_GE(calculator.GetTimes(highest, 10.0, longitude).sunset, highest - 86400);
    }
}

TEST(SunCalculatorTest, SunriseAndSunsetOutsideOf32BitsSaturate)
{
    const SunCalculator calculator;

    // The range ends at 2038-01-19 03:14:07 UTC, and the day at this place six hours after
    // midnight.
    EXPECT_LT(calculator.GetTimes(highest, 10.0, -180.0).sunrise, highest);
    EXPECT_EQ(calculator.GetTimes(highest, 10.0, -180.0).sunset, highest);
    // It begins at 1901-12-13 20:45:52 UTC, which is noon at this place.
    EXPECT_EQ(calculator.GetTimes(lowest, 10.0, -135.0).sunrise, lowest);
    EXPECT_GT(calculator.GetTimes(lowest, 10.0, -135.0).sunset, lowest);

    if (sizeof(std::time_t) > sizeof(std::int32_t)) {
        constexpr std::int64_t yearThreeThousand = 32503680000;
        const SunTimes late =
            calculator.GetTimes(static_cast<std::time_t>(yearThreeThousand), 10.0, 0);
        EXPECT_EQ(late.sunrise, highest);
        EXPECT_EQ(late.sunset, highest);
        const SunTimes early =
            calculator.GetTimes(static_cast<std::time_t>(-yearThreeThousand), 10.0, 0);
        EXPECT_EQ(early.sunrise, lowest);
        EXPECT_EQ(early.sunset, lowest);
    }
}

TEST(SunCalculatorTest, OneObjectServesManyThreads)
{
    const SunCalculator calculator;
    const SunTimes expected = calculator.GetTimes(summerSolstice, 48.14, 11.58);
    std::vector<std::thread> threads;
    std::array<int, 4> differences{};
    threads.reserve(differences.size());

    for (int& count : differences) {
        threads.emplace_back([&calculator, &expected, &count] {
            for (int turn = 0; turn < 1000; ++turn) {
                const SunTimes times = calculator.GetTimes(summerSolstice, 48.14, 11.58);
                count += times.sunrise != expected.sunrise || times.sunset != expected.sunset;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(differences, (std::array<int, 4>{}));
}

// ------------------------------------------------------------ against an independent ephemeris

struct EphemerisRow
{
    const char* place;
    double latitude;
    double longitude;
    std::int64_t date;
    std::int64_t sunrise;
    std::int64_t sunset;
};

constexpr EphemerisRow ephemeris[] = {
#include "tests/Util/data/SunEphemeris.inc"
};

struct LatitudeBand
{
    const char* name;
    double from;
    double to;
    double worstAllowedSeconds;
};

void PrintTo(const LatitudeBand& band, std::ostream* out)
{
    *out << band.name;
}

/// Errors of sunrises and sunsets in seconds.
struct ErrorSummary
{
    std::size_t count = 0;
    double worst = 0;
    double sum = 0;
    double absoluteSum = 0;

    void Add(double error)
    {
        ++count;
        worst = std::max(worst, std::abs(error));
        sum += error;
        absoluteSum += std::abs(error);
    }
};

class SunEphemerisTest : public testing::TestWithParam<LatitudeBand>
{
};

bool IsIn(const LatitudeBand& band, const EphemerisRow& row)
{
    return std::abs(row.latitude) >= band.from && std::abs(row.latitude) < band.to;
}

bool HasSunrise(const SunTimes& times)
{
    return times.sunrise != 0;
}

/// Whether the season of polar day or night ends within two days of the row's date.
bool IsAtTheEdgeOfAPolarSeason(const SunCalculator& calculator, const EphemerisRow& row)
{
    constexpr std::int64_t twoDays = 172800;  // in seconds
    const auto before = static_cast<std::time_t>(row.date - twoDays);
    const auto after = static_cast<std::time_t>(row.date + twoDays);
    return HasSunrise(calculator.GetTimes(before, row.latitude, row.longitude)) !=
           HasSunrise(calculator.GetTimes(after, row.latitude, row.longitude));
}

TEST(SunCalculatorTest, EphemerisTableHoldsHundredsOfPlacesAndDatesOfBothKinds)
{
    const auto polar = std::count_if(std::begin(ephemeris), std::end(ephemeris),
                                     [](const EphemerisRow& row) { return row.sunrise == 0; });

    EXPECT_GE(std::size(ephemeris), 500U);
    EXPECT_GE(polar, 50);
}

TEST_P(SunEphemerisTest, ErrorStaysWithinTheBoundOfTheBand)
{
    const SunCalculator calculator;
    const LatitudeBand& band = GetParam();
    ErrorSummary errors;

    for (const EphemerisRow& row : ephemeris) {
        if (!IsIn(band, row)) {
            continue;
        }
        const SunTimes times =
            calculator.GetTimes(static_cast<std::time_t>(row.date), row.latitude, row.longitude);
        if (HasSunrise(times) != (row.sunrise != 0)) {
            EXPECT_TRUE(IsAtTheEdgeOfAPolarSeason(calculator, row)) << row.place << row.date;
        } else if (row.sunrise == 0) {
            EXPECT_EQ(times.sunset, 0) << row.place << row.date;
        } else {
            errors.Add(static_cast<double>(times.sunrise - row.sunrise));
            errors.Add(static_cast<double>(times.sunset - row.sunset));
            EXPECT_LE(errors.worst, band.worstAllowedSeconds) << row.place << row.date;
        }
    }

    ASSERT_GT(errors.count, 0U);
    const auto count = static_cast<double>(errors.count);
    std::printf("%s: %.0f events, worst %.0f s, mean %.1f s, mean signed %+.1f s\n", band.name,
                count, errors.worst, errors.absoluteSum / count, errors.sum / count);
    // A little more than a minute late on average; more would mean a wrong formula.
    EXPECT_NEAR(errors.sum / count, 75, 25);
}

INSTANTIATE_TEST_SUITE_P(LatitudeBands, SunEphemerisTest,
                         testing::Values(LatitudeBand{"Below25", 0, 25, 120},
                                         LatitudeBand{"From25To45", 25, 45, 156},
                                         LatitudeBand{"From45To60", 45, 60, 194},
                                         LatitudeBand{"From60To66", 60, 66, 218},
                                         LatitudeBand{"From66", 66, 91, 671}),
                         [](const auto& suite) { return std::string(suite.param.name); });

}  // namespace
