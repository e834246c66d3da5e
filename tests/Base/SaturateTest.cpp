#include "Tolvex/Base/Private/Saturate.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace {

using Tolvex::Base::SaturateToInt32;

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

TEST(SaturateTest, NumbersInRangeAreTruncatedTowardZero)
{
    EXPECT_EQ(SaturateToInt32(0.0), 0);
    EXPECT_EQ(SaturateToInt32(-0.0), 0);
    EXPECT_EQ(SaturateToInt32(2.9), 2);
    EXPECT_EQ(SaturateToInt32(-2.9), -2);
    EXPECT_EQ(SaturateToInt32(2147483647.0), highest);
    EXPECT_EQ(SaturateToInt32(-2147483648.0), lowest);
}

TEST(SaturateTest, FractionsBeyondTheLastIntegerAreStillTheLastInteger)
{
    EXPECT_EQ(SaturateToInt32(2147483647.5), highest);
    EXPECT_EQ(SaturateToInt32(-2147483648.5), lowest);
}

TEST(SaturateTest, NumbersOutOfRangeSaturate)
{
    EXPECT_EQ(SaturateToInt32(2147483648.0), highest);
    EXPECT_EQ(SaturateToInt32(-2147483649.0), lowest);
    EXPECT_EQ(SaturateToInt32(1e300), highest);
    EXPECT_EQ(SaturateToInt32(-1e300), lowest);
    EXPECT_EQ(SaturateToInt32(std::numeric_limits<double>::infinity()), highest);
    EXPECT_EQ(SaturateToInt32(-std::numeric_limits<double>::infinity()), lowest);
}

TEST(SaturateTest, NotANumberGivesZero)
{
    EXPECT_EQ(SaturateToInt32(std::nan("")), 0);
    EXPECT_EQ(SaturateToInt32(-std::nan("")), 0);
}

}  // namespace
