#include "Tolvex/Util/UtilAcc.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <type_traits>

#include <gtest/gtest.h>

namespace {

using Tolvex::UtilAcc::AccFloatToNative;
using Tolvex::UtilAcc::AccNativeToFloat;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

static_assert(std::is_same_v<decltype(AccFloatToNative(0.0F, 2)), std::int8_t>);
static_assert(std::is_same_v<decltype(AccNativeToFloat(0, 2)), float>);

unsigned char Byte(int value)
{
    return static_cast<unsigned char>(value);
}

/// The low 8 bits of a number, read as signed.
int LowByte(std::int64_t number)
{
    const int low = static_cast<int>(number & 0xFF);
    return low < 128 ? low : low - 256;
}

// ------------------------------------------------------------------------------ AccNativeToFloat

TEST(UtilAccTest, SamplesAreReadAsSignedBytes)
{
    EXPECT_EQ(AccNativeToFloat(0x80, 2), -2.0F);
    EXPECT_EQ(AccNativeToFloat(0xFF, 2), -1.0F / 64.0F);
    EXPECT_EQ(AccNativeToFloat(0x00, 2), 0.0F);
    EXPECT_EQ(AccNativeToFloat(0x7F, 2), 127.0F / 64.0F);
    EXPECT_EQ(AccNativeToFloat(0x40, 4), 2.0F);
}

TEST(UtilAccTest, CountsPerGAreTheWholeQuotientOf128AndTheRange)
{
    EXPECT_EQ(AccNativeToFloat(64, 2), 1.0F);
    EXPECT_EQ(AccNativeToFloat(32, 4), 1.0F);
    EXPECT_EQ(AccNativeToFloat(16, 8), 1.0F);
    EXPECT_EQ(AccNativeToFloat(8, 16), 1.0F);
    EXPECT_EQ(AccNativeToFloat(42, 3), 1.0F);
    EXPECT_EQ(AccNativeToFloat(1, 128), 1.0F);
    EXPECT_EQ(AccNativeToFloat(1, 127), 1.0F);
    EXPECT_EQ(AccNativeToFloat(2, 64), 1.0F);
}

// The product of a float and a divisor up to 128 is exact in double, so this compares exact
// numbers.
TEST(UtilAccTest, EverySampleAtEveryRangeIsTheFloatNearestToTheExactQuotient)
{
    for (int range = 1; range <= 128; ++range) {
        const int wholeCounts = 128 / range;
        const double counts = wholeCounts;
        for (int raw = 0; raw < 256; ++raw) {
            const float result = AccNativeToFloat(Byte(raw), Byte(range));
            const double error = std::abs(static_cast<double>(result) * counts - LowByte(raw));
            const auto above = static_cast<double>(std::nextafter(result, infinity));
            const auto below = static_cast<double>(std::nextafter(result, -infinity));

            ASSERT_LE(error, std::abs(above * counts - LowByte(raw))) << raw << " at " << range;
            ASSERT_LE(error, std::abs(below * counts - LowByte(raw))) << raw << " at " << range;
        }
    }
}

TEST(UtilAccTest, ARangeOfZeroOrAbove128GivesTheQuotientByZero)
{
    for (const int range : {0, 129, 130, 200, 255}) {
        EXPECT_EQ(AccNativeToFloat(1, Byte(range)), infinity);
        EXPECT_EQ(AccNativeToFloat(0x7F, Byte(range)), infinity);
        EXPECT_EQ(AccNativeToFloat(0x80, Byte(range)), -infinity);
        EXPECT_EQ(AccNativeToFloat(0xFF, Byte(range)), -infinity);
        EXPECT_TRUE(std::isnan(AccNativeToFloat(0, Byte(range))));
    }
}

// ------------------------------------------------------------------------------ AccFloatToNative

TEST(UtilAccTest, AccelerationsAreScaledByTheExactFactorAndTruncatedTowardZero)
{
    EXPECT_EQ(AccFloatToNative(1.0F, 2), 64);
    EXPECT_EQ(AccFloatToNative(-1.0F, 2), -64);
    EXPECT_EQ(AccFloatToNative(-0.99F, 8), -15);
    EXPECT_EQ(AccFloatToNative(0.99F, 8), 15);
    EXPECT_EQ(AccFloatToNative(1.0F, 3), 42);
    EXPECT_EQ(AccFloatToNative(2.0F, 3), 85);  // 85 1/3; two times 42 would be 84
    EXPECT_EQ(AccFloatToNative(0.0F, 2), 0);
    EXPECT_EQ(AccFloatToNative(-0.0F, 2), 0);
}

TEST(UtilAccTest, AccelerationsBeyondTheRangeWrapAroundThoughClampingWouldBeNearer)
{
    EXPECT_EQ(AccFloatToNative(2.5F, 2), -96);
    EXPECT_EQ(AccFloatToNative(2.0F, 2), -128);
    EXPECT_EQ(AccFloatToNative(-2.5F, 2), 96);
    EXPECT_EQ(AccFloatToNative(4.0F, 2), 0);
    EXPECT_EQ(AccFloatToNative(-2.015625F, 2), 127);
}

TEST(UtilAccTest, EveryExactAccelerationAtEveryRangeGivesItsSample)
{
    for (int range = 1; range < 256; ++range) {
        for (int sample = -128; sample < 128; ++sample) {
            const float exact = static_cast<float>(sample * range) / 128.0F;
            ASSERT_EQ(AccFloatToNative(exact, Byte(range)), sample) << "range " << range;
        }
    }
}

// Accelerations are multiples of 2^-16 g, so that the scaled number is a fraction of integers.
TEST(UtilAccTest, AccelerationsAtEveryRangeAgreeWithTheTruncatedFraction)
{
    for (int range = 1; range < 256; ++range) {
        const std::int64_t divisor = std::int64_t{512} * range;
        for (std::int64_t steps = -1300001; steps <= 1300001; steps += 997) {
            const float acceleration = std::ldexp(static_cast<float>(steps), -16);
            ASSERT_EQ(AccFloatToNative(acceleration, Byte(range)), LowByte(steps / divisor))
                << steps << " at " << range;
        }
    }
}

TEST(UtilAccTest, AccelerationsJustBesideASampleAgreeWithTheTruncatedFraction)
{
    for (int range = 1; range < 256; ++range) {
        for (int sample = 1; sample < 128; ++sample) {
            const float exact = static_cast<float>(sample * range) / 128.0F;
            const float below = std::nextafter(exact, 0.0F);
            const float above = std::nextafter(exact, infinity);

            ASSERT_EQ(AccFloatToNative(below, Byte(range)), sample - 1) << "range " << range;
            ASSERT_EQ(AccFloatToNative(above, Byte(range)), sample) << "range " << range;
            ASSERT_EQ(AccFloatToNative(-below, Byte(range)), 1 - sample) << "range " << range;
            ASSERT_EQ(AccFloatToNative(-above, Byte(range)), -sample) << "range " << range;
        }
    }
}

TEST(UtilAccTest, NumbersBeyond32BitsSaturateBeforeTheLowBitsAreTaken)
{
    EXPECT_EQ(AccFloatToNative(16777215.0F, 1), -128);  // 0x7FFFFF80
    EXPECT_EQ(AccFloatToNative(16777216.0F, 1), -1);    // 2^31 saturates to 0x7FFFFFFF
    EXPECT_EQ(AccFloatToNative(-16777216.0F, 1), 0);    // 0x80000000
    EXPECT_EQ(AccFloatToNative(-16777218.0F, 1), 0);    // saturates to 0x80000000
    EXPECT_EQ(AccFloatToNative(1e30F, 2), -1);
    EXPECT_EQ(AccFloatToNative(-1e30F, 2), 0);
}

TEST(UtilAccTest, SpecialFloatsAreDefinedAtEveryRange)
{
    constexpr float largest = std::numeric_limits<float>::max();
    constexpr float smallest = std::numeric_limits<float>::denorm_min();
    constexpr float smallestNormal = std::numeric_limits<float>::min();

    for (int range = 1; range < 256; ++range) {
        EXPECT_EQ(AccFloatToNative(infinity, Byte(range)), -1);
        EXPECT_EQ(AccFloatToNative(-infinity, Byte(range)), 0);
        EXPECT_EQ(AccFloatToNative(largest, Byte(range)), -1);
        EXPECT_EQ(AccFloatToNative(-largest, Byte(range)), 0);
        EXPECT_EQ(AccFloatToNative(notANumber, Byte(range)), 0);
        EXPECT_EQ(AccFloatToNative(-notANumber, Byte(range)), 0);
        EXPECT_EQ(AccFloatToNative(smallest, Byte(range)), 0);
        EXPECT_EQ(AccFloatToNative(-smallestNormal, Byte(range)), 0);
    }
}

TEST(UtilAccTest, ARangeOfZeroSaturatesAndZeroOrNaNGiveZero)
{
    EXPECT_EQ(AccFloatToNative(0.001F, 0), -1);
    EXPECT_EQ(AccFloatToNative(infinity, 0), -1);
    EXPECT_EQ(AccFloatToNative(-0.001F, 0), 0);
    EXPECT_EQ(AccFloatToNative(-infinity, 0), 0);
    EXPECT_EQ(AccFloatToNative(0.0F, 0), 0);
    EXPECT_EQ(AccFloatToNative(-0.0F, 0), 0);
    EXPECT_EQ(AccFloatToNative(notANumber, 0), 0);
}

TEST(UtilAccTest, TheQuotientIsRoundedToSinglePrecisionBeforeItIsTruncated)
{
    // 25673930 / 3 = 8557976 2/3, and floats of this size are whole numbers: 8557977
    EXPECT_EQ(AccFloatToNative(200577.578125F, 3), LowByte(8557977));
}

/// The scaled number: the quotient, with many more digits than a float has, rounded to a float.
int ExpectedSample(float acceleration, int range)
{
    if (std::isnan(acceleration)) {
        return 0;
    }
    const double quotient = static_cast<double>(acceleration) * 128.0 / range;
    if (std::abs(quotient) > 3e9) {
        return quotient > 0.0 ? LowByte(2147483647) : LowByte(-2147483648LL);
    }
    const auto counts = static_cast<std::int64_t>(static_cast<float>(quotient));
    return LowByte(std::clamp<std::int64_t>(counts, -2147483648LL, 2147483647));
}

TEST(UtilAccTest, FloatsOfEverySignAndExponentAgreeWithDoubleArithmetic)
{
    for (std::uint32_t high = 0; high < 65536; ++high) {
        const float acceleration = std::bit_cast<float>(high << 16 | (high * 40503U & 0xFFFFU));
        for (const int range : {1, 2, 3, 4, 8, 16, 255}) {
            ASSERT_EQ(AccFloatToNative(acceleration, Byte(range)),
                      ExpectedSample(acceleration, range))
                << acceleration << " at " << range;
        }
    }
}

// ----------------------------------------------------------------------------------- round trips

TEST(UtilAccTest, EverySampleMakesTheRoundTripAtARangeThatDivides128)
{
    for (const int range : {1, 2, 4, 8, 16, 32, 64, 128}) {
        for (int raw = 0; raw < 256; ++raw) {
            const float acceleration = AccNativeToFloat(Byte(raw), Byte(range));
            EXPECT_EQ(AccFloatToNative(acceleration, Byte(range)), LowByte(raw));
        }
    }
}

TEST(UtilAccTest, SamplesDoNotMakeTheRoundTripAtARangeThatDoesNotDivide128)
{
    EXPECT_EQ(AccFloatToNative(AccNativeToFloat(84, 3), 3), 85);     // 2 g
    EXPECT_EQ(AccFloatToNative(AccNativeToFloat(127, 3), 3), -127);  // 3.02 g: 129
}

}  // namespace
