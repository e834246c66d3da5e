#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

namespace {

using namespace Tolvex::Json;

/// A number as the C library writes it.
std::string Print(double number)
{
    std::array<char, 500> text;
    const int length = std::snprintf(text.data(), text.size(), "%f", number);
    return {text.data(), static_cast<std::size_t>(length)};
}

TEST(SerializeTest, ScalarsAreNoDocumentsAndGiveEmptyText)
{
    for (const Value& value :
         {Value(), Value("a"), Value(5), Value::FromFloat(1.0F), Value(1.0), Value(true)}) {
        EXPECT_EQ(Serialize(value), "");
    }
}

TEST(SerializeTest, EveryTypeHasItsText)
{
    EXPECT_EQ(SerializeValue(Value()), "null");
    EXPECT_EQ(SerializeValue(Value("a")), R"("a")");
    EXPECT_EQ(SerializeValue(Value(-3)), "-3");
    EXPECT_EQ(SerializeValue(Value::FromFloat(0.1F)), "0.100000");
    EXPECT_EQ(SerializeValue(Value(1.5)), "1.500000");
    EXPECT_EQ(SerializeValue(Value(Object())), "{}");
    EXPECT_EQ(SerializeValue(Value(Array())), "[]");
    EXPECT_EQ(SerializeValue(Value(true)), "true");
    EXPECT_EQ(SerializeValue(Value(false)), "false");
    EXPECT_EQ(SerializeArray(Array()), "[]");
}

TEST(SerializeTest, MembersComeInByteOrderAndElementsInTheirs)
{
    Object object;
    object["a"] = std::string("x");
    object["_"] = 2;
    object["B"] = true;
    Array array;
    array.push_back(1.5);
    array.push_back(Value());
    array.push_back(Array());
    array.push_back(Object());

    EXPECT_EQ(Serialize(object), R"({"B":true,"_":2,"a":"x"})");
    EXPECT_EQ(Serialize(array), "[1.500000,null,[],{}]");
    EXPECT_EQ(SerializeArray(array), Serialize(array));
}

TEST(SerializeTest, ContainersNest)
{
    EXPECT_EQ(Serialize(Deserialize(R"({"k":[{"z":false}],"l":[[],[1]]})")),
              R"({"k":[{"z":false}],"l":[[],[1]]})");
}

TEST(SerializeTest, StringsAndKeysAreWrittenWithoutEscapes)
{
    const std::string bytes("\"\\\n\0\xff", 5);
    Object object;
    object[bytes] = bytes;

    EXPECT_EQ(SerializeValue(Value(R"(He said "hi")")), R"("He said "hi"")");
    EXPECT_EQ(Serialize(object), "{\"" + bytes + "\":\"" + bytes + "\"}");
}

TEST(SerializeTest, ArrayFunctionWritesTheArrayForm)
{
    EXPECT_EQ(SerializeArray(Deserialize(R"([1,"a",[true],{}])").ToArray()),
              R"([1,"a",[true],{}])");
}

TEST(SerializeTest, ClearedValueIsNullThoughItHoldsItsContent)
{
    Value value = Deserialize("[1]");

    value.Clear();

    EXPECT_EQ(SerializeValue(value), "null");
    EXPECT_EQ(Serialize(value), "");
}

TEST(SerializeTest, IntegersReachBothEnds)
{
    EXPECT_EQ(SerializeValue(Value(std::numeric_limits<int>::max())), "2147483647");
    EXPECT_EQ(SerializeValue(Value(std::numeric_limits<int>::min())), "-2147483648");
    EXPECT_EQ(SerializeValue(Value(0)), "0");
}

TEST(SerializeTest, NumbersAreTheCLibrarysAtEveryMagnitude)
{
    for (const double number : {0.0,
                                -0.0,
                                0.1,
                                1e-7,
                                -1e-7,
                                5e-7,
                                1.5e-6,
                                2.5e-6,
                                1e20,
                                1e15,
                                4503599627370497.5,
                                9007199254740993.0,
                                0.9999995,
                                0.99999949999,
                                999999.9999995,
                                1.0000005,
                                8388607.5,
                                std::numeric_limits<double>::max(),
                                std::numeric_limits<double>::lowest(),
                                std::numeric_limits<double>::min(),
                                std::numeric_limits<double>::denorm_min()}) {
        EXPECT_EQ(SerializeValue(Value(number)), Print(number));
    }
}

TEST(SerializeTest, InfinitiesAndNotANumberAreSpelledAsTheCLibraryDoes)
{
    EXPECT_EQ(SerializeValue(Value(HUGE_VAL)), "inf");
    EXPECT_EQ(SerializeValue(Value(-HUGE_VAL)), "-inf");
    EXPECT_EQ(SerializeValue(Value(std::copysign(std::nan(""), 1.0))), "nan");
    EXPECT_EQ(SerializeValue(Value(std::copysign(std::nan(""), -1.0))), "-nan");
}

TEST(SerializeTest, RandomBitPatternsAreWrittenAsTheCLibraryDoes)
{
    std::mt19937_64 bits(1);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t pattern = bits();
        double number = 0.0;
        std::memcpy(&number, &pattern, sizeof number);
        ASSERT_EQ(SerializeValue(Value(number)), Print(number));
    }
}

TEST(SerializeTest, OrdinaryNumbersAndTiesAreWrittenAsTheCLibraryDoes)
{
    std::mt19937_64 bits(2);
    for (int i = 0; i < 40000; ++i) {
        const auto integer = static_cast<double>(bits() >> (bits() % 64));
        const double number = std::ldexp(integer, -static_cast<int>(bits() % 60));
        ASSERT_EQ(SerializeValue(Value(number)), Print(number));
        ASSERT_EQ(SerializeValue(Value(integer / 1e6)), Print(integer / 1e6));
    }
}

// The writer's buffer holds 4096 bytes. Strings of more than 512 bytes bypass it.
TEST(SerializeTest, KeysAndStringsOfEveryLengthAreWholeWhereverTheyStand)
{
    Array document;
    std::string expected = "[";
    for (std::size_t length = 1; length < 1100; ++length) {
        const std::string bytes(length, static_cast<char>('a' + length % 26));
        Object object;
        object[bytes] = bytes;
        object[bytes + "+"] = -1e300;
        document.push_back(object);
        if (length != 1) {
            expected += ',';
        }
        expected.append(R"({")").append(bytes).append(R"(":")").append(bytes);
        expected.append(R"(",")").append(bytes).append(R"(+":)").append(Print(-1e300)).append("}");
    }
    expected += "]";

    EXPECT_EQ(SerializeArray(document), expected);
}

// The writer estimates the rest of the text whenever its buffer is full.
TEST(SerializeTest, EmptyContainersAreWrittenWhereverTheBufferIsFull)
{
    for (std::size_t length = 0; length < 4200; ++length) {
        // Several short strings: a long one bypasses the buffer.
        Array document;
        std::string expected = "[";
        for (std::size_t rest = length; rest != 0;) {
            const std::string bytes(std::min<std::size_t>(rest, 500), 'x');
            document.push_back(bytes);
            expected.append("\"").append(bytes).append("\",");
            rest -= bytes.size();
        }
        Array nested;
        std::string nestedText = "[]";
        for (int depth = 0; depth < 10; ++depth) {
            Array outer;
            outer.push_back(std::move(nested));
            nested = std::move(outer);
            nestedText.insert(0, 1, '[').append("]");
        }
        document.push_back(Array{});
        document.push_back(Object{});
        document.push_back(std::move(nested));
        expected += "[],{}," + nestedText + "]";

        ASSERT_EQ(SerializeArray(document), expected) << length;
    }
}

TEST(SerializeTest, ManyEmptyContainersAreWritten)
{
    Object withEmptyMember;
    withEmptyMember["a"] = Array{};
    for (const Value& value : {Value(Array{}), Value(Object{}), Value(withEmptyMember)}) {
        Array document;
        std::string expected;
        for (int i = 0; i < 5000; ++i) {
            document.push_back(value);
            expected.append(i == 0 ? "[" : ",").append(SerializeValue(value));
        }
        EXPECT_EQ(SerializeArray(document), expected + "]");
    }
}

// The text outgrows the memory of its string.
TEST(SerializeTest, TextTakesAtMostTwiceItsLengthHoweverUnevenTheDocumentIs)
{
    const Value large(std::string(300000, 'x'));
    Array firstIsLarge;
    firstIsLarge.push_back(large);
    Array lastIsLarge;
    Array numbers;
    for (int i = 0; i < 100000; ++i) {
        firstIsLarge.push_back(i);
        lastIsLarge.push_back(i);
        numbers.push_back(i);
    }
    lastIsLarge.push_back(large);
    Array nested = numbers;
    for (int depth = 0; depth < 20; ++depth) {
        Array outer;
        outer.push_back(std::move(nested));
        outer.push_back(1);
        nested = std::move(outer);
    }

    for (const Array& document : {firstIsLarge, lastIsLarge, numbers, nested}) {
        const std::string text = SerializeArray(document);
        EXPECT_LE(text.capacity(), 2 * text.size() + 1);
        EXPECT_TRUE(Deserialize(text) == Value(document));
    }
}

}  // namespace
