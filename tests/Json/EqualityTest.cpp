#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

namespace {

using namespace Tolvex::Json;

TEST(EqualityTest, EveryPairOfTypesIsJudgedByTheLeftOperandWhereANumberIsOnTheRight)
{
    const std::vector<Value> values = {
        Value(),    Value(""),       Value(3),       Value::FromFloat(3.0F),
        Value(3.0), Value(Object()), Value(Array()), Value(false)};
    // Rows: left operand, null to bool; columns: right operand.
    const std::vector<std::string> expected = {
        "10111000",  // null: itself, and every number
        "01111000",  // "": itself, and every number
        "00111000",  // 3
        "00111000",  // 3.0f
        "00111000",  // 3.0
        "00111100",  // {}: itself, and every number
        "00111010",  // []: itself, and every number
        "00111001",  // false: itself, and every number
    };

    for (std::size_t left = 0; left < expected.size(); ++left) {
        for (std::size_t right = 0; right < expected.size(); ++right) {
            EXPECT_EQ(values[left] == values[right], expected[left][right] == '1')
                << left << " == " << right;
        }
    }
}

TEST(EqualityTest, NonEmptyValuesDifferFromNumbers)
{
    for (const Value& number : {Value(1), Value::FromFloat(1.0F), Value(1.0)}) {
        EXPECT_FALSE(Value("1") == number);
        EXPECT_FALSE(Deserialize("[1]") == number);
        EXPECT_FALSE(Deserialize(R"({"k":1})") == number);
        EXPECT_FALSE(Value(true) == number);
    }
}

TEST(EqualityTest, NullOnTheLeftEqualsEveryNumberAndNoNumberEqualsNull)
{
    EXPECT_TRUE(Value() == Value(3));
    EXPECT_FALSE(Value(3) == Value());
    EXPECT_TRUE(Value() == Value(std::nan("")));
}

TEST(EqualityTest, LeftOperandComparesWithTheInactiveRepresentationOfANumber)
{
    const Value number(3);
    Value right("old");
    Value flag(true);

    right = number;
    flag = number;

    EXPECT_TRUE(Value("old") == right);
    EXPECT_FALSE(Value("") == right);
    EXPECT_TRUE(Value(true) == flag);
    EXPECT_FALSE(Value(false) == flag);
}

TEST(EqualityTest, NumbersCompareExactlyAcrossTypes)
{
    EXPECT_TRUE(Value(1) == Value(1.0));
    EXPECT_FALSE(Value(1.5) == Value(1));
    EXPECT_FALSE(Value(1) == Value(1.5));
    EXPECT_FALSE(Value::FromFloat(1.5F) == Value(1));
    EXPECT_FALSE(Value(1) == Value::FromFloat(1.5F));
    EXPECT_FALSE(Value(1) == Value(2));
    EXPECT_FALSE(Value(1.25) == Value(1.5));
    EXPECT_FALSE(Value::FromFloat(1.25F) == Value::FromFloat(1.5F));
    EXPECT_FALSE(Value(true) == Value(false));
    EXPECT_TRUE(Value(16777217) == Value(16777217.0)) << "the integer is exact";
    EXPECT_FALSE(Value::FromFloat(0.1F) == Value(0.1)) << "the float is widened";
    EXPECT_FALSE(Value(0.1) == Value::FromFloat(0.1F));
    EXPECT_TRUE(Value::FromFloat(0.5F) == Value(0.5));
    EXPECT_TRUE(Value(16777217) == Value::FromFloat(16777216.0F)) << "the integer is rounded";
    EXPECT_TRUE(Value::FromFloat(16777216.0F) == Value(16777217));
    EXPECT_TRUE(Value(0.0) == Value(-0.0));
}

TEST(EqualityTest, NotANumberEqualsNothingNotEvenItself)
{
    const Value nan(std::nan(""));
    const Value floatNan = Value::FromFloat(std::nanf(""));
    const Value sameNan(nan);

    EXPECT_FALSE(nan == sameNan);
    EXPECT_FALSE(floatNan == Value(floatNan));
    EXPECT_FALSE(floatNan == nan);
    EXPECT_FALSE(nan == floatNan);
    EXPECT_FALSE(nan == Value(0));
    EXPECT_FALSE(Value(0) == nan);
}

TEST(EqualityTest, StringsCompareByLengthAndBytes)
{
    EXPECT_TRUE(Value("a") == Value("a"));
    EXPECT_FALSE(Value("a") == Value("A"));
    EXPECT_FALSE(Value(std::string("a\0", 2)) == Value("a"));
    EXPECT_FALSE(Value("a") == Value(true));
}

TEST(EqualityTest, ArraysCompareSizeAndElementsInOrder)
{
    EXPECT_TRUE(Deserialize("[1,[2,3]]") == Deserialize("[1,[2,3]]"));
    EXPECT_FALSE(Deserialize("[1,[2,3]]") == Deserialize("[1,[3,2]]"));
    EXPECT_FALSE(Deserialize("[1]") == Deserialize("[1,1]"));
    EXPECT_TRUE(Deserialize("[[],[1]]").AsArray() == Deserialize("[[],[1.0]]").AsArray());
}

TEST(EqualityTest, ObjectsCompareSizeKeysAndValues)
{
    EXPECT_TRUE(Deserialize(R"({"a":1,"b":{}})") == Deserialize(R"({"b":{},"a":1})"));
    EXPECT_FALSE(Deserialize(R"({"a":1})") == Deserialize(R"({"b":1})"));
    EXPECT_FALSE(Deserialize(R"({"a":1})") == Deserialize(R"({"a":2})"));
    EXPECT_FALSE(Deserialize(R"({"a":1})") == Deserialize(R"({"a":1,"b":1})"));
    EXPECT_TRUE(Deserialize(R"({"a":[]})").AsObject() == Deserialize(R"({"a":[]})").AsObject());
}

TEST(EqualityTest, ContainersAreAsAsymmetricAsWhatTheyHold)
{
    const Value nulls = Deserialize(R"({"a":null})");
    const Value numbers = Deserialize(R"({"a":1})");

    EXPECT_TRUE(nulls == numbers);
    EXPECT_FALSE(numbers == nulls);
    EXPECT_FALSE(nulls != numbers);
}

}  // namespace
