#include <chrono>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

namespace {

using namespace Tolvex::Json;

#if defined(__arm__) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t count = 30000;
#else
constexpr std::size_t count = 200000;
#endif

std::string Repeat(const std::string& text, std::size_t times)
{
    std::string repeated;
    for (std::size_t i = 0; i < times; ++i) {
        repeated += text;
    }
    return repeated;
}

struct Document
{
    const char* name;
    std::string text;
};

/// Texts that take minutes where anything is looked at again for every element or level: at this
/// length the square of it is 200,000 times more work than the length itself.
class GrowthTest : public testing::TestWithParam<Document>
{
};

TEST_P(GrowthTest, TextIsReadInLinearTime)
{
    const auto begin = std::chrono::steady_clock::now();
    try {
        (void)Deserialize(GetParam().text);
    } catch (const std::out_of_range&) {  // also an answer, as long as it comes
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
}

INSTANTIATE_TEST_SUITE_P(
    Documents, GrowthTest,
    testing::Values(
        Document{"Numbers", "[" + Repeat("1,", count) + "]"},
        Document{"Members", "{\"a\":1" + Repeat(R"(,"a":"x")", count) + "}"},
        Document{"StringsBeforeABracket", "[" + Repeat(R"("" )", count) + "[]]"},
        Document{"StringsBeforeABracketWithCommas", "[" + Repeat(R"("",)", count) + "[]]"},
        Document{"Quotes", "[" + Repeat("\"", count) + "]"},
        Document{"Backslashes", "[\"" + Repeat("\\", count) + "\"]"},
        Document{"EscapedQuotes", "[\"" + Repeat("\\\"", count) + "\",[]]"},
        Document{"UnclosedArrays", Repeat("[", count) + "]"},
        Document{"UnclosedObjectsInArrays", Repeat(R"({"a":[)", count) + "}"},
        Document{"BracketsInStrings", "[" + Repeat(R"("[",)", count) + "[]]"},
        Document{"ObjectsInStrings", "[" + Repeat(R"("{[" "]}" )", count) + "[]]"},
        Document{"ShiftedStrings", "[\\\"" + Repeat(R"([" ["]" ])", count) + "]"},
        Document{"StringsThatEndInABackslash", "[" + Repeat(R"(["\\"],)", count) + "1]"},
        Document{"NestedErrors", Repeat("[", count) + ".5" + Repeat("],1", count - 1) + "]"},
        Document{"NestedObjectErrors", Repeat(R"({"a":)", count) + "x" + Repeat("}", count)},
        Document{"ArraysWithoutComma", "[" + Repeat("[]", count) + "]"},
        Document{"Blanks", "[" + Repeat(" ", count) + "[" + Repeat(" ", count) + "]]"},
        Document{"LongToken", "[" + Repeat("1", count) + "]"},
        Document{"LongFraction", "[0." + Repeat("1", count) + "]"},
        Document{"KeysWithoutColon", "{" + Repeat(R"("a" )", count) + "}"},
        Document{"BracketsBeforeTheColon", R"({"a")" + Repeat("[]{}", count) + ":1}"},
        Document{"Mismatches", "[" + Repeat("[[}]],", count) + "1]"}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
