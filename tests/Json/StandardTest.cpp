#include "Tolvex/Json/Standard.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Documents.h"
#include "tests/Json/Judge.h"
#include "tests/Json/StandardReaders.h"
#include "tests/Support/Pace.h"

namespace {

using namespace Tolvex::Json;
using Judge::StandardComplaint;

TEST(StandardTest, DocumentIsCompactAndInTheOrderOfItsKeys)
{
    Object object;
    object["b"] = 2;
    object["a"] = Value("x");
    object["B"] = Deserialize(R"([[],{},true,[false,{"k":{}}]])");
    object["n"] = Value();

    const std::string expected = R"({"B":[[],{},true,[false,{"k":{}}]],"a":"x","b":2,"n":null})";
    EXPECT_EQ(SerializeStandard(object), expected);
    EXPECT_EQ(SerializeStandard(Value(object)), expected);
}

TEST(StandardTest, EmptyContainersAndScalarsAreDocuments)
{
    EXPECT_EQ(SerializeStandard(Array()), "[]");
    EXPECT_EQ(SerializeStandard(Object()), "{}");
    EXPECT_EQ(SerializeStandard(Value(Array())), "[]");
    EXPECT_EQ(SerializeStandard(Value()), "null");
    EXPECT_EQ(SerializeStandard(7), "7");
    EXPECT_EQ(SerializeStandard(false), "false");
    EXPECT_EQ(SerializeStandard("x"), "\"x\"");
}

TEST(StandardTest, StringsThatEndInBracketsHideNoComma)
{
    Array array;
    array.push_back("[");
    array.push_back("{");
    EXPECT_EQ(SerializeStandard(array), R"(["[","{"])");
}

TEST(StandardTest, ClearedValueIsNullThoughItHoldsItsOldContent)
{
    Value value = Deserialize("[1]");
    value.Clear();
    EXPECT_EQ(SerializeStandard(value), "null");
}

// ----------------------------------------------------------------------------------------- numbers

TEST(StandardTest, IntegersAreWrittenWhole)
{
    EXPECT_EQ(SerializeStandard(std::numeric_limits<std::int32_t>::min()), "-2147483648");
    EXPECT_EQ(SerializeStandard(std::numeric_limits<std::int32_t>::max()), "2147483647");
}

TEST(StandardTest, FloatingPointNumbersAreShortestAndStayFloatingPoint)
{
    EXPECT_EQ(SerializeStandard(0.1), "0.1");
    EXPECT_EQ(SerializeStandard(5.0), "5.0");
    EXPECT_EQ(SerializeStandard(-0.0), "-0.0");
    EXPECT_EQ(SerializeStandard(1e20), "1e+20");
    EXPECT_EQ(SerializeStandard(1e-7), "1e-07");
    EXPECT_EQ(SerializeStandard(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(SerializeStandard(5e-324), "5e-324");
    EXPECT_EQ(SerializeStandard(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(SerializeStandard(-123456789012345680.0), "-123456789012345680.0");
}

TEST(StandardTest, FloatsHaveTheirOwnShortestText)
{
    EXPECT_EQ(SerializeStandard(Value::FromFloat(0.1F)), "0.1");
    EXPECT_EQ(SerializeStandard(Value::FromFloat(16777216.0F)), "16777216.0");
    EXPECT_EQ(SerializeStandard(Value::FromFloat(1e-45F)), "1e-45");
}

TEST(StandardTest, WhatJsonCannotHoldIsNull)
{
    for (const double number : {std::nan(""), -std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        EXPECT_EQ(SerializeStandard(number), "null");
        EXPECT_EQ(SerializeStandard(Value::FromFloat(static_cast<float>(number))), "null");
    }
}

// ----------------------------------------------------------------------------------------- strings

TEST(StandardTest, EveryByteBelow128IsEscapedOrWrittenAsItIs)
{
    const std::string shortEscapes = "\b\f\n\r\t\"\\";
    const std::string letters = "bfnrt\"\\";
    for (int code = 0; code < 128; ++code) {
        const char byte = static_cast<char>(code);
        const std::size_t index = shortEscapes.find(byte);
        std::string expected(1, byte);
        if (index != std::string::npos) {
            expected = std::string("\\") + letters[index];
        } else if (code < 0x20) {
            const std::string hexDigits = "0123456789abcdef";
            expected = std::string("\\u00") + (code < 16 ? '0' : '1') +
                       hexDigits[static_cast<std::size_t>(code) % 16];
        }
        EXPECT_EQ(SerializeStandard(std::string(1, byte)), "\"" + expected + "\"") << code;
    }
}

TEST(StandardTest, KeysAreWrittenAsStringsAre)
{
    Object object;
    object[std::string("a\0\"\xFF", 4)] = 1;
    EXPECT_EQ(SerializeStandard(object), "{\"a\\u0000\\\"\xEF\xBF\xBD\":1}");
}

struct Bytes
{
    std::string name;
    std::string bytes;
    std::string written;  ///< with "?" for U+FFFD
};

class Utf8Test : public testing::TestWithParam<Bytes>
{
};

TEST_P(Utf8Test, InvalidBytesAreReplacedOncePerMaximalPart)
{
    std::string expected = "\"";
    for (const char byte : GetParam().written) {
        expected += byte == '?' ? "\xEF\xBF\xBD" : std::string(1, byte);
    }
    EXPECT_EQ(SerializeStandard(GetParam().bytes), expected + "\"");
    EXPECT_EQ(StandardComplaint(GetParam().bytes), "");
}

INSTANTIATE_TEST_SUITE_P(
    Strings, Utf8Test,
    testing::Values(
        Bytes{"EveryLength",
              "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
              "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        Bytes{"BesideTheSurrogates", "\xED\x9F\xBF\xEE\x80\x80", "\xED\x9F\xBF\xEE\x80\x80"},
        Bytes{"LineSeparators", "\xE2\x80\xA8\xE2\x80\xA9", "\xE2\x80\xA8\xE2\x80\xA9"},
        Bytes{"ContinuationAlone", "a\x80z\xBF", "a?z?"},
        Bytes{"TwoBytesForAscii", "\xC0\xAF\xC1\xBF", "????"},
        Bytes{"ThreeBytesForFewerBits", "\xE0\x80\xBF\xE0\x9F\xBF", "??????"},
        Bytes{"FourBytesForFewerBits", "\xF0\x80\x80\x80\xF0\x8F\xBF\xBF", "????????"},
        Bytes{"Surrogates", "\xED\xA0\x80\xED\xBF\xBF", "??????"},
        Bytes{"AboveTheLastCharacter", "\xF4\x90\x80\x80\xF5\x80\x80\x80", "????????"},
        Bytes{"NeverInUtf8", "\xF8\xFB\xFE\xFF", "????"},
        Bytes{"CutBeforeOthers", "\xE1\x80\xE2\xF0\x91\x92\xF1\xBFz", "????z"},
        Bytes{"CutAtTheEnd", "z\xF0\x9F\x98", "z?"}, Bytes{"LeadAtTheEnd", "z\xC3", "z?"},
        Bytes{"CutBeforeAQuote", "\xE4\xB8\"", "?\\\""},
        Bytes{"LeadBeforeAWholeOne", "\xE4\xC3\xA9", "?\xC3\xA9"}),
    [](const auto& row) { return row.param.name; });

TEST(StandardTest, EveryPairOfBytesIsReadBackByBothReaders)
{
    Array array;
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            array.push_back(std::string{static_cast<char>(first), static_cast<char>(second)});
        }
    }
    EXPECT_TRUE(StandardComplaint(std::move(array)).empty());
}

TEST(StandardTest, EveryCharacterIsWrittenAsItIs)
{
    std::string all;
    for (std::uint32_t code = 0x80; code <= 0x10FFFF; ++code) {
        if (code >= 0xD800 && code <= 0xDFFF) {
            continue;
        }
        const auto continuation = [code](unsigned int shift) {
            return static_cast<char>(0x80U | ((code >> shift) & 0x3FU));
        };
        if (code < 0x800) {
            all += {static_cast<char>(0xC0U | code >> 6U), continuation(0)};
        } else if (code < 0x10000) {
            all += {static_cast<char>(0xE0U | code >> 12U), continuation(6), continuation(0)};
        } else {
            all += {static_cast<char>(0xF0U | code >> 18U), continuation(12), continuation(6),
                    continuation(0)};
        }
    }
    EXPECT_TRUE(SerializeStandard(all) == "\"" + all + "\"");
}

TEST(StandardTest, HugeStringIsWritten)
{
    const std::size_t length = Tolvex::Support::Scaled(20000000);
    EXPECT_EQ(SerializeStandard(std::string(length, 'x')).size(), length + 2);
    EXPECT_EQ(SerializeStandard(std::string(length, '\0')).size(), 6 * length + 2);
}

// ------------------------------------------------------------------------------------ differential

TEST(StandardTest, RandomNumbersAreReadBackBitByBit)
{
    Judge::Random random(4);
    const std::size_t count = Tolvex::Support::Scaled(200000);
    Array array;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t bits = random.Next();
        double number = 0;
        float single = 0;
        std::memcpy(&number, &bits, sizeof number);
        std::memcpy(&single, &bits, sizeof single);
        array.push_back(number);
        array.push_back(Value::FromFloat(single));
        array.push_back(static_cast<double>(static_cast<std::int64_t>(bits) >> random.Below(60)));
    }
    EXPECT_TRUE(StandardComplaint(std::move(array)).empty());
}

TEST(StandardTest, RandomTreesAreReadBackByBothReaders)
{
    Judge::Random random(5);
    const std::size_t count = Tolvex::Support::Scaled(30000);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(StandardComplaint(Judge::ToValue(Judge::MakeTree(random, 0))), "");
    }
}

}  // namespace
