// Work and memory grow with the length of a text, never with its square. The work is counted, not
// timed: the reader is compiled for this test so that every block of code in it reports that it
// runs.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"

#include "tests/Support/CountingNew.h"

namespace {

std::uint64_t blocksRun = 0;

}  // namespace

// Called by the compiled reader at the beginning of every block of code.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the compiler gives the name
extern "C" void __sanitizer_cov_trace_pc()
{
    ++blocksRun;
}

namespace {

using namespace Tolvex::Json;
using Tolvex::Support::allocatedBytes;

constexpr std::size_t shortCount = 5000;
constexpr std::size_t longCount = 4 * shortCount;
constexpr std::uint64_t highestGrowth = 6;  // the square would be sixteen

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
    std::string (*make)(std::size_t count);
};

struct Cost
{
    std::uint64_t blocks;
    std::size_t bytes;
};

template <typename Work>
Cost CostOf(Work work)
{
    const Cost before = {blocksRun, allocatedBytes};
    work();
    return {blocksRun - before.blocks, allocatedBytes - before.bytes};
}

Cost CostOfReading(const std::string& text)
{
    return CostOf([&] {
        ParseError error;
        try {
            (void)Deserialize(text, error);
        } catch (const std::out_of_range&) {  // also an answer
        }
    });
}

/// Texts that would take quadratic time if the reader scanned anything again per element or level.
class GrowthTest : public testing::TestWithParam<Document>
{
};

TEST_P(GrowthTest, FourTimesTheTextTakesAboutFourTimesTheWorkAndMemory)
{
    const Cost once = CostOfReading(GetParam().make(shortCount));
    const Cost fourTimes = CostOfReading(GetParam().make(longCount));

    EXPECT_GT(once.blocks, shortCount / 100) << "nothing is counted";
    EXPECT_LT(fourTimes.blocks, highestGrowth * once.blocks);
    EXPECT_LT(fourTimes.bytes, highestGrowth * std::max<std::size_t>(once.bytes, 1000));
}

INSTANTIATE_TEST_SUITE_P(
    Documents, GrowthTest,
    testing::Values(
        Document{"Numbers", [](std::size_t count) { return "[" + Repeat("1,", count) + "]"; }},
        Document{"Members",
                 [](std::size_t count) { return "{\"a\":1" + Repeat(R"(,"a":"x")", count) + "}"; }},
        Document{"StringsBeforeABracket",
                 [](std::size_t count) { return "[" + Repeat(R"("" )", count) + "[]]"; }},
        Document{"StringsBeforeABracketWithCommas",
                 [](std::size_t count) { return "[" + Repeat(R"("",)", count) + "[]]"; }},
        Document{"Quotes", [](std::size_t count) { return "[" + Repeat("\"", count) + "]"; }},
        Document{"Backslashes",
                 [](std::size_t count) { return "[\"" + Repeat("\\", count) + "\"]"; }},
        Document{"EscapedQuotes",
                 [](std::size_t count) { return "[\"" + Repeat("\\\"", count) + "\",[]]"; }},
        Document{"UnclosedArrays", [](std::size_t count) { return Repeat("[", count) + "]"; }},
        Document{"UnclosedObjectsInArrays",
                 [](std::size_t count) { return Repeat(R"({"a":[)", count) + "}"; }},
        Document{"BracketsInStrings",
                 [](std::size_t count) { return "[" + Repeat(R"("[",)", count) + "[]]"; }},
        Document{"ObjectsInStrings",
                 [](std::size_t count) { return "[" + Repeat(R"("{[" "]}" )", count) + "[]]"; }},
        Document{"ShiftedStrings",
                 [](std::size_t count) { return "[\\\"" + Repeat(R"([" ["]" ])", count) + "]"; }},
        Document{"StringsThatEndInABackslash",
                 [](std::size_t count) { return "[" + Repeat(R"(["\\"],)", count) + "1]"; }},
        Document{"NestedErrors",
                 [](std::size_t count) {
                     return Repeat("[", count) + ".5" + Repeat("],1", count - 1) + "]";
                 }},
        Document{
            "NestedObjectErrors",
            [](std::size_t count) { return Repeat(R"({"a":)", count) + "x" + Repeat("}", count); }},
        Document{"ArraysWithoutComma",
                 [](std::size_t count) { return "[" + Repeat("[]", count) + "]"; }},
        Document{"Blanks",
                 [](std::size_t count) {
                     return "[" + Repeat(" ", count) + "[" + Repeat(" ", count) + "]]";
                 }},
        Document{"LongToken", [](std::size_t count) { return "[" + Repeat("1", count) + "]"; }},
        Document{"LongFraction",
                 [](std::size_t count) { return "[0." + Repeat("1", count) + "]"; }},
        Document{"KeysWithoutColon",
                 [](std::size_t count) { return "{" + Repeat(R"("a" )", count) + "}"; }},
        Document{"BracketsBeforeTheColon",
                 [](std::size_t count) { return R"({"a")" + Repeat("[]{}", count) + ":1}"; }},
        Document{"Mismatches",
                 [](std::size_t count) { return "[" + Repeat("[[}]],", count) + "1]"; }}),
    [](const auto& test) { return std::string(test.param.name); });

/// A document with so many containers side by side, in as many nested arrays.
Value MakeDocument(std::size_t count)
{
    return Deserialize(Repeat("[", count) + Repeat(R"({"a":1},)", count) + Repeat("]", count));
}

/// Moves a document from one value to the other, in all ways.
Cost CostOfMoves(std::size_t count)
{
    Value first = MakeDocument(count);
    Value assigned;
    Object object;
    Array array;
    Value holder = Deserialize(R"([{"k":1}])");
    return CostOf([&] {
        assigned = std::move(first);
        Value second(std::move(assigned));
        object["k"] = std::move(second);
        Value third(std::move(object));
        array.push_back(std::move(third));
        assigned = Value(std::move(array));
        holder[0]["k"] = std::move(assigned);
        holder[0] = std::move(holder[0]["k"]);
    });
}

TEST(MoveGrowthTest, MovesTakeTheSameWorkForEveryDocument)
{
    EXPECT_EQ(CostOfMoves(longCount).blocks, CostOfMoves(shortCount).blocks);
}

}  // namespace
