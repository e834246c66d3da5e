#include "Tolvex/Json/ParseError.h"

#include <cstddef>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Support/CountingNew.h"

namespace {

using namespace Tolvex::Json;
using Tolvex::Support::AllocationBudget;

const std::string expectedValue =
    "expected a number, true, false, null, or a string in double quotes";
const std::string expectedComma = "expected a comma or the end of the container";
const std::string expectedKey = "expected a key in double quotes";
const std::string mismatch = "bracket does not match the one that it closes";
const std::string notClosed = "array or object is not closed";

/// The error of a text, or of the exception that left the reading.
ParseError ErrorOf(const std::string& text)
{
    ParseError error;
    try {
        (void)Deserialize(text, error);
    } catch (const std::out_of_range&) {
        EXPECT_NE(error.reason, "") << text;
    }
    return error;
}

struct Row
{
    std::string name;
    std::string text;
    std::size_t offset;
    std::string reason;
};

void PrintTo(const Row& row, std::ostream* stream)
{
    *stream << row.text;
}

class FaultTest : public testing::TestWithParam<Row>
{
};

TEST_P(FaultTest, ErrorNamesPlaceAndReason)
{
    const ParseError error = ErrorOf(GetParam().text);

    EXPECT_EQ(error.offset, GetParam().offset);
    EXPECT_EQ(error.line, 1U);
    EXPECT_EQ(error.column, GetParam().offset + 1);
    EXPECT_EQ(error.reason, GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, FaultTest,
    testing::Values(
        Row{"EmptyText", "", 0, "expected an object or an array"},
        Row{"BlankText", "  ", 2, "expected an object or an array"},
        Row{"Scalar", " 5", 1, "expected an object or an array"},
        Row{"ClosingBracketFirst", "]", 0, "expected an object or an array"},
        Row{"ByteOrderMark", "\xEF\xBB\xBF{}", 0, "expected an object or an array"},
        Row{"NulFirst", std::string("\0{}", 3), 0, "expected an object or an array"},
        Row{"OneBracket", "{", 1, "the closing bracket of the document is missing"},
        Row{"LastBracketMissing", "{\"a\":[1] ", 8,
            "the closing bracket of the document is missing"},
        Row{"LastQuoteMissing", "[\"a", 3, "the closing bracket of the document is missing"},
        Row{"TextAfterTheEnd", "[1]  x", 5, "text after the end of the document"},
        Row{"NulAfterTheEnd", std::string("[1]\0", 4), 3, "text after the end of the document"},
        Row{"SecondDocument", "{\"a\":1} {\"b\":2}", 6, expectedComma},
        Row{"OtherBracketAtTheEnd", "[1}", 2, mismatch},
        Row{"OtherBracketInside", "[{\"a\":1],2", 7, mismatch}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Objects, FaultTest,
    testing::Values(Row{"BlanksOnly", "{ }", 1, "object of blanks only"},
                    Row{"KeyWithoutQuotes", "{\"b\":1, a:1}", 8, expectedKey},
                    Row{"KeyInSingleQuotes", "{'a':1}", 1, expectedKey},
                    Row{"KeyWithoutQuotesBeforeAString", "{a:\"x\"}", 1, expectedKey},
                    Row{"NothingAfterAComma", "{\"a\":\"x\", }", 10, expectedKey},
                    Row{"QuoteInsideAString", "{\"s\":\"a\"b\"}", 8, expectedKey},
                    Row{"KeyNotClosed", "{\"a:1}", 1, "string has no closing quote"},
                    Row{"EmptyKey", "{\"a\":1,\"\":1}", 7, "empty key"},
                    Row{"ColonMissing", "{\"a\" 1}", 5, "expected a colon after the key"},
                    Row{"ColonMissingAtTheEnd", "{\"a\"}", 4, "expected a colon after the key"},
                    Row{"CommaMissing", "{\"a\":1 \"b\":2}", 7, expectedComma},
                    Row{"Comment", "{\"a\":1 // one\n}", 7, expectedComma},
                    Row{"AdditionalBrace", "{\"a\":1}}", 6, expectedComma},
                    Row{"ContainerAfterANumber", "{\"a\":1 [2]}", 7, expectedComma},
                    Row{"StringNotClosed", "{\"s\":\"x}", 5, "string has no closing quote"},
                    Row{"OtherBracketInAMember", "{\"a\":[1}, \"b\":2}", 7, mismatch},
                    Row{"MemberNotClosed", "{\"a\":{\"b\":1}", 5, notClosed}),
    [](const auto& row) { return row.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Values, FaultTest,
    testing::Values(Row{"PointBeforeAnyDigit", "[1, .5]", 4, expectedValue},
                    Row{"UpperCaseLiteral", "{\"a\":TRUE}", 5, expectedValue},
                    Row{"WordOfTheMembersEnd", "{\"a\": on ,\"b\":1}", 6, expectedValue},
                    Row{"StringInSingleQuotes", "{\"a\":'x'}", 5, expectedValue},
                    Row{"NumberTooLarge", "[1e999]", 1, expectedValue},
                    Row{"NumberTooSmall", "[1e-310]", 1, expectedValue},
                    Row{"TwoNumbersAndAWord", "[1 2x]", 3, expectedComma},
                    Row{"NulInANumber", std::string("[1\0]", 4), 2, expectedComma},
                    Row{"ContainerAfterAnElement", "[1 [2]]", 3, expectedComma},
                    Row{"CommaInAnElement", "[1,\"a,b\"]", 3,
                        "no closing quote before the comma or bracket that ends an element"},
                    Row{"LastElementNotClosed", "[1,\"a]", 3, "string has no closing quote"},
                    Row{"ElementNotClosed", "[[1,2]", 1, notClosed},
                    Row{"BackslashHidesAQuote", "[[\"a\\\\\"],1]", 1, notClosed},
                    Row{"CutEscape", "{\"s\":\"\\u0\"}", 5,
                        "\\u escape is cut off by the end of its string"},
                    Row{"CutEscapeInElement", "[\"x\", \"\\u0\" \"\"]", 6,
                        "\\u escape is cut off by the end of its string"}),
    [](const auto& row) { return row.param.name; });

TEST(ParseErrorTest, GoodTextHasNoErrorAndClearsTheOneBefore)
{
    for (const std::string text : {"{}", "[1,2]", "[1,,null,2]]", "{\"a\":}",
                                   "{\"a\":\"x\" \"b\":1}", "{\"a\":1,\"a\":[]}", "[0x1e]"}) {
        ParseError error{3, 1, 4, "an older one"};

        const Value value = Deserialize(text, error);

        EXPECT_NE(value.GetType(), NullVal) << text;
        EXPECT_EQ(error.offset, 0U);
        EXPECT_EQ(error.line, 0U);
        EXPECT_EQ(error.column, 0U);
        EXPECT_EQ(error.reason, "") << text;
    }
}

TEST(ParseErrorTest, MalformedNestedContainerIsAnErrorThoughTheRestIsRead)
{
    ParseError error;

    const Value value = Deserialize(R"({"a":[1,.5],"b":2})", error);

    EXPECT_EQ(value["a"].GetType(), NullVal);
    EXPECT_EQ(value["b"].ToInt(), 2);
    EXPECT_EQ(error.offset, 8U);
    EXPECT_EQ(error.reason, expectedValue);
}

TEST(ParseErrorTest, FirstOfSeveralFaultsIsNamed)
{
    EXPECT_EQ(ErrorOf("[[.5],[TRUE]]").offset, 2U);
    EXPECT_EQ(ErrorOf("{\"a\":[.5],\"b\":\"\\u0\"}").offset, 6U);  // the last one throws
    EXPECT_EQ(ErrorOf("{\"a\":{ },\"b\":x}").offset, 6U);
}

TEST(ParseErrorTest, LineAndColumnCountNewlinesAndCharacters)
{
    const ParseError second = ErrorOf("{\r\n\t\"\xC3\xA9\xE4\xB8\xAD\": x}");
    EXPECT_EQ(second.offset, 13U);
    EXPECT_EQ(second.line, 2U);
    EXPECT_EQ(second.column, 8U);

    const ParseError atLineBegin = ErrorOf("[\n\n.5\n]");
    EXPECT_EQ(atLineBegin.line, 3U);
    EXPECT_EQ(atLineBegin.column, 1U);

    const ParseError blank = ErrorOf("\n \n");
    EXPECT_EQ(blank.offset, 3U);
    EXPECT_EQ(blank.line, 3U);
    EXPECT_EQ(blank.column, 1U);
}

TEST(ParseErrorTest, TextMayBeTheReasonOfTheErrorItself)
{
    ParseError error;
    error.reason = "[.5]";

    (void)Deserialize(error.reason, error);

    EXPECT_EQ(error.offset, 1U);
    EXPECT_EQ(error.reason, expectedValue);
}

TEST(ParseErrorTest, ExhaustedMemoryLeavesTheErrorUnchanged)
{
    const std::string text = R"({"a":["a text that is long enough for the heap",[.5]]})";
    std::size_t failures = 0;
    for (bool failed = true; failed; ++failures) {
        ParseError error{7, 7, 7, "old"};
        failed = false;
        try {
            const AllocationBudget limited(failures);
            (void)Deserialize(text, error);
        } catch (const std::bad_alloc&) {
            failed = true;
        }

        EXPECT_EQ(error.offset, failed ? 7U : text.find(".5"));
        EXPECT_EQ(error.reason, failed ? "old" : expectedValue);
    }
    EXPECT_GT(failures, 5U);
}

TEST(ParseErrorTest, HugeTextIsLocatedAtItsEnd)
{
    const std::size_t length = 20000000;
    const ParseError error = ErrorOf("[\"" + std::string(length, '\n') + "\",.5]");

    EXPECT_EQ(error.offset, length + 4);
    EXPECT_EQ(error.line, length + 1);
    EXPECT_EQ(error.column, 3U);
}

}  // namespace
