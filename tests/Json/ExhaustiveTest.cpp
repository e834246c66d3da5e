// The library reads and writes every short text exactly as the reference does. Each family of texts
// has an alphabet of the characters that matter at its place; no text over it is left out.

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Json/Judge.h"
#include "tests/Support/Pace.h"

namespace {

using Tolvex::Json::Judge::Complaint;

constexpr std::size_t mostTexts = 600000;

struct Family
{
    std::string_view name;
    std::string_view before;
    std::string_view alphabet;
    std::string_view after;
};

void PrintTo(const Family& family, std::ostream* stream)
{
    *stream << family.before << "..." << family.after;
}

/// The greatest length that this run has time for.
std::size_t LengthFor(std::size_t letters)
{
    std::size_t length = 0;
    std::size_t texts = letters;
    while (texts <= Tolvex::Support::Scaled(mostTexts)) {
        ++length;
        texts *= letters;
    }
    return length;
}

/// Counts through all texts of one length. Returns false after the last one.
bool Advance(std::vector<std::size_t>& digits, std::size_t letters)
{
    for (std::size_t& digit : digits) {
        if (++digit < letters) {
            return true;
        }
        digit = 0;
    }
    return false;
}

class ExhaustiveTest : public testing::TestWithParam<Family>
{
};

TEST_P(ExhaustiveTest, EveryShortTextReadsAndWritesAsTheReferenceDoes)
{
    const Family family = GetParam();
    const std::size_t longest = LengthFor(family.alphabet.size());

    for (std::size_t length = 0; length <= longest; ++length) {
        std::vector<std::size_t> digits(length, 0);
        do {
            std::string text(family.before);
            for (const std::size_t digit : digits) {
                text += family.alphabet[digit];
            }
            text += family.after;
            const std::string complaint = Complaint(text);
            ASSERT_TRUE(complaint.empty()) << complaint;
        } while (Advance(digits, family.alphabet.size()));
    }
}

constexpr Family families[] = {
    {"WholeText", "", R"([]{}",:1 )", ""},
    {"Array", "[", R"([]{}"\,:1)", "]"},
    {"ArrayWithBlanks", "[", R"([]{}" ,1)", "]"},
    {"ArrayInAnArray", "[[", R"([]{}"\,a)", "],1]"},
    {"ObjectInAnArray", R"([{"a":)", R"([]{}"\,:1)", "},1]"},
    {"Object", "{", R"("\:,a1[]{)", "}"},
    {"ArrayInAnObject", R"({"a":[)", R"([]{}"\,1)", R"(],"b":2})"},
    {"Member", R"({"a":)", R"([]{}"\,:1)", "}"},
    {"MemberWithBlanks", R"({"a":)", R"([]{}" ,1)", "}"},
    {"String", R"(["x)", R"(\"u04nz )", R"("])"},
    {"EscapeInAString", R"({"a":"\u)", R"(\"u0-xf )", R"("})"},
    {"Number", "[", "10.e-+xE ", "]"},
    {"NumberInAMember", R"({"a":)", "98.e-,]} ", "}"},
    {"Literal", "[", "truefals", "]"},
};

INSTANTIATE_TEST_SUITE_P(Families, ExhaustiveTest, testing::ValuesIn(families),
                         [](const auto& family) { return std::string(family.param.name); });

}  // namespace
