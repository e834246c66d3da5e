// A tree that is written and read again.

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Documents.h"
#include "tests/Json/Judge.h"
#include "tests/Json/Reference.h"
#include "tests/Support/Pace.h"

namespace Tolvex::Json {
namespace {

using Judge::Describe;
using Judge::Random;
using Reference::Kind;
using Reference::Node;

constexpr std::size_t trees = 50000;
constexpr int maxDepth = 5;

Value ThereAndBack(const Value& value)
{
    return Deserialize(Serialize(value));
}

/// Text that survives a round trip, but for blanks at its ends. In an array a comma or a closing
/// bracket is safe only behind an opening bracket.
std::string MakeText(Random& random, bool inArray)
{
    constexpr std::string_view safe = "ab \t\n:}/\001\177\303\244\377'0";
    constexpr std::string_view all = "ab \t\n:}/\001\177\303\244\377'0,][{";
    std::string text = inArray && random.OneIn(4) ? "[" : "";
    const std::string_view letters = inArray && text.empty() ? safe : all;
    const std::size_t count = random.Below(8);
    for (std::size_t i = 0; i < count; ++i) {
        text += letters[random.Below(letters.size())];
    }
    return text;
}

double MakeFinite(Random& random)
{
    if (random.OneIn(2)) {
        return (static_cast<double>(random.Below(4000000)) - 2000000) / 1024;
    }
    const double number = std::bit_cast<double>(random.Next());
    return std::isfinite(number) ? number : -0.0;
}

Node MakeScalar(Random& random, bool inArray)
{
    switch (random.Below(6)) {
        case 0:
            return Node();
        case 1:
            return Reference::FromBool(random.OneIn(2));
        case 2:
            return Reference::FromInt(static_cast<std::int32_t>(random.Next() >> 32));
        case 3:
            return Reference::FromDouble(MakeFinite(random));
        default:
            return Reference::FromString(MakeText(random, inArray));
    }
}

Node MakeReadableTree(Random& random, int depth)
{
    const bool array = random.OneIn(2);
    Node node = array ? Reference::EmptyArray() : Reference::EmptyObject();
    const std::size_t count = random.Below(5);
    for (std::size_t i = 0; i < count; ++i) {
        const Node child = depth < maxDepth && random.OneIn(2) ? MakeReadableTree(random, depth + 1)
                                                               : MakeScalar(random, array);
        if (array) {
            node.elements.push_back(child);
        } else {
            node.members["k" + MakeText(random, false)] = child;
        }
    }
    return node;
}

std::string WithoutBlanksAtItsEnds(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\n\v\f\r");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\n\v\f\r") - first + 1);
}

double ToSixDecimals(double number)
{
    char text[500];
    std::snprintf(text, sizeof text, "%f", number);
    return std::strtod(text, nullptr);
}

/// The tree that comes back for a readable one.
Node AfterARoundTrip(const Node& node)
{
    Node result = node;
    if (node.kind == Kind::String) {
        result.text = WithoutBlanksAtItsEnds(node.text);
    } else if (node.kind == Kind::Double) {
        result = Reference::FromDouble(ToSixDecimals(node.doubleValue));
    }
    result.elements.clear();
    for (const Node& element : node.elements) {
        if (element.kind != Kind::Null) {
            result.elements.push_back(AfterARoundTrip(element));
        }
    }
    for (auto& [key, member] : result.members) {
        member = AfterARoundTrip(member);
    }
    return result;
}

TEST(RoundTripTest, ReadableTreesComeBackTrimmedRoundedAndWithoutNullElements)
{
    Random random(1);
    const std::size_t count = Support::Scaled(trees);

    for (std::size_t i = 0; i < count; ++i) {
        const Node tree = MakeReadableTree(random, 0);
        const Node expected = AfterARoundTrip(tree);
        ASSERT_TRUE(Judge::Same(ThereAndBack(Judge::ToValue(tree)), expected))
            << Describe(tree) << "\n  text:     " << Judge::Quoted(Reference::Serialize(tree))
            << "\n  expected: " << Describe(expected);
    }
}

TEST(RoundTripTest, TheSecondRoundTripChangesNothing)
{
    Random random(2);
    const std::size_t count = Support::Scaled(trees);

    for (std::size_t i = 0; i < count; ++i) {
        const Value once = ThereAndBack(Judge::ToValue(MakeReadableTree(random, 0)));
        const std::string text = Serialize(once);
        ASSERT_TRUE(ThereAndBack(once) == once) << text;
        ASSERT_EQ(Serialize(ThereAndBack(once)), text);
    }
}

TEST(RoundTripTest, TreesOfAnyBytesAreWrittenAndReadAsByTheReference)
{
    Random random(3);
    const std::size_t count = Support::Scaled(trees);

    for (std::size_t i = 0; i < count; ++i) {
        const Node tree = Judge::MakeTree(random, 0);
        const std::string text = Reference::SerializeValue(tree);
        ASSERT_EQ(SerializeValue(Judge::ToValue(tree)), text) << Describe(tree);
        ASSERT_EQ(Judge::Complaint(text), "");
    }
}

TEST(RoundTripTest, NumbersWithoutATextSpoilTheirContainer)
{
    Array array;
    array.push_back(Value(std::numeric_limits<double>::quiet_NaN()));
    Object object;
    object["a"] = Value(-std::numeric_limits<double>::infinity());

    EXPECT_EQ(ThereAndBack(Value(array)).GetType(), NullVal);
    EXPECT_EQ(ThereAndBack(Value(object)).GetType(), NullVal);
}

TEST(RoundTripTest, QuoteEndsAStringElementAndTheRestOfItIsDropped)
{
    Array array;
    array.push_back(Value(std::string("He said \"hi\"")));
    array.push_back(Value(2));

    EXPECT_EQ(Describe(Judge::ReadByLibrary(SerializeArray(array))), R"(["He said",2])");
}

TEST(RoundTripTest, EmptyKeySpoilsTheDocument)
{
    Object object;
    object[""] = Value(1);

    EXPECT_EQ(ThereAndBack(Value(object)).GetType(), NullVal);
}

}  // namespace
}  // namespace Tolvex::Json
