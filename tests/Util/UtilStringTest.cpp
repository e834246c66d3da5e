#include "Tolvex/Util/UtilString.h"

#include <limits>
#include <locale>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/ReplaceReference.h"

namespace {

using Tolvex::Support::ReplaceInPlace;
using Tolvex::Util::Replace;
using Tolvex::Util::ToHex;
using Tolvex::Util::ToLower;
using Tolvex::Util::ToUpper;

/// Replaces the global locale while it exists.
class GlobalLocale
{
public:
    explicit GlobalLocale(const std::locale& locale) : previous(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(previous); }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

private:
    std::locale previous;
};

/// Character classes of a Western European code page, for the letter Ä only, and only in the
/// mapping of single characters.
class WesternLetters : public std::ctype<char>
{
protected:
    char do_toupper(char character) const override
    {
        return character == '\xE4' ? '\xC4' : std::ctype<char>::do_toupper(character);
    }
    char do_tolower(char character) const override
    {
        return character == '\xC4' ? '\xE4' : std::ctype<char>::do_tolower(character);
    }
};

/// Number format with a point after every third digit.
class PointedNumbers : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

// --------------------------------------------------------------------------- ToUpper and ToLower

TEST(UtilStringTest, EveryByteIsMappedAsTheClassicLocaleMapsIt)
{
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        const bool lower = code >= 'a' && code <= 'z';
        const bool upper = code >= 'A' && code <= 'Z';

        EXPECT_EQ(ToUpper({character}),
                  std::string(1, static_cast<char>(lower ? code - 32 : code)));
        EXPECT_EQ(ToLower({character}),
                  std::string(1, static_cast<char>(upper ? code + 32 : code)));
    }
}

TEST(UtilStringTest, TextsAreMappedCharacterByCharacter)
{
    EXPECT_EQ(ToUpper("Camera 2: ready\n"), "CAMERA 2: READY\n");
    EXPECT_EQ(ToLower("Camera 2: READY\n"), "camera 2: ready\n");
    EXPECT_EQ(ToUpper(""), "");
    EXPECT_EQ(ToLower(""), "");
    EXPECT_EQ(ToUpper(std::string("a\0b", 3)), std::string("A\0B", 3));
}

TEST(UtilStringTest, TheGlobalLocaleIsReadAtEachCall)
{
    const std::string small = "\xE4z";
    const std::string capital = "\xC4Z";
    EXPECT_EQ(ToUpper(small), "\xE4Z");
    EXPECT_EQ(ToLower(capital), "\xC4z");
    {
        const GlobalLocale western(std::locale(std::locale::classic(), new WesternLetters));
        EXPECT_EQ(ToUpper(small), capital);
        EXPECT_EQ(ToLower(capital), small);
    }
    EXPECT_EQ(ToUpper(small), "\xE4Z");
    EXPECT_EQ(ToLower(capital), "\xC4z");
}

// ----------------------------------------------------------------------------------------- ToHex

TEST(UtilStringTest, ToHexGivesLowerCaseDigitsWithoutPrefixOrPadding)
{
    EXPECT_EQ(ToHex(0), "0");
    EXPECT_EQ(ToHex(9), "9");
    EXPECT_EQ(ToHex(10), "a");
    EXPECT_EQ(ToHex(255), "ff");
    EXPECT_EQ(ToHex(0x1234abc), "1234abc");
    EXPECT_EQ(ToHex(std::numeric_limits<int>::max()), "7fffffff");
}

TEST(UtilStringTest, ToHexGivesNegativeNumbersAsTwosComplementOf32Bits)
{
    EXPECT_EQ(ToHex(-1), "ffffffff");
    EXPECT_EQ(ToHex(-256), "ffffff00");
    EXPECT_EQ(ToHex(std::numeric_limits<int>::min()), "80000000");
}

TEST(UtilStringTest, ToHexGivesBareDigitsInEveryLocale)
{
    const GlobalLocale pointed(std::locale(std::locale::classic(), new PointedNumbers));

    EXPECT_EQ(ToHex(-1), "ffffffff");
    EXPECT_EQ(ToHex(0x12345), "12345");
}

// --------------------------------------------------------------------------------------- Replace

TEST(UtilStringTest, ReplaceChangesEveryOccurrence)
{
    EXPECT_EQ(Replace("abcabc", "b", "XY"), "aXYcaXYc");
    EXPECT_EQ(Replace("abcabc", "abc", "x"), "xx");
    EXPECT_EQ(Replace("abcabc", "bc", ""), "aa");
    EXPECT_EQ(Replace("abcabc", "abcabc", ""), "");
}

TEST(UtilStringTest, ReplaceWithoutOccurrenceGivesTheSource)
{
    EXPECT_EQ(Replace("abcabc", "d", "X"), "abcabc");
    EXPECT_EQ(Replace("abcabc", "abcabcd", "X"), "abcabc");
    EXPECT_EQ(Replace("", "a", "X"), "");
    EXPECT_EQ(Replace("abcabc", "B", "X"), "abcabc");
}

TEST(UtilStringTest, ReplaceOfAnEmptyTextGivesTheSource)
{
    EXPECT_EQ(Replace("abc", "", "X"), "abc");
    EXPECT_EQ(Replace("abc", "", ""), "abc");
    EXPECT_EQ(Replace("", "", "X"), "");
}

TEST(UtilStringTest, ReplaceDoesNotSearchWhatItPutIn)
{
    EXPECT_EQ(Replace("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(Replace("ab", "a", "bab"), "babb");
    EXPECT_EQ(Replace("aab", "ab", "a"),
              "aa");  // the new "a" and the one before it are not searched again
}

TEST(UtilStringTest, ReplaceTakesMatchesFromTheLeftWithoutOverlap)
{
    EXPECT_EQ(Replace("aaaaa", "aa", "b"), "bba");
    EXPECT_EQ(Replace("ababa", "aba", "x"), "xba");
}

TEST(UtilStringTest, ReplaceTakesOneTextForAllItsArguments)
{
    const std::string text(100, 'a');
    std::string changed = "abab";

    EXPECT_EQ(Replace(text, text, text), text);
    changed = Replace(changed, "b", changed);
    EXPECT_EQ(changed, "aababaabab");
}

TEST(UtilStringTest, ReplaceTakesBytesOfAnyValue)
{
    const std::string source("\0\xFF\0\xFF", 4);
    EXPECT_EQ(Replace(source, std::string("\0", 1), "0"),
              "0\xFF"
              "0\xFF");
    EXPECT_EQ(Replace(source, "\xFF", std::string("\0", 1)), std::string("\0\0\0\0", 4));
}

TEST(UtilStringTest, ReplaceFindsTextsOfEveryLengthAtEveryPlace)
{
    for (std::size_t length = 1; length <= 80; ++length) {
        std::string from(length, 'x');
        from.back() = 'y';
        for (std::size_t before = 0; before < 5; ++before) {
            const std::string filler(before, 'x');
            // NOLINTNEXTLINE(performance-inefficient-string-concatenation): plain
            EXPECT_EQ(Replace(filler + from + filler + from, from, "-"),
                      std::string(filler).append("-").append(filler).append("-"))
                << length << " after " << before;
        }
    }
}

/// All texts of the letters a and b up to a length.
std::vector<std::string> Texts(std::size_t longest)
{
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; texts[i].size() < longest; ++i) {
        texts.push_back(texts[i] + "a");
        texts.push_back(texts[i] + "b");
    }
    return texts;
}

TEST(UtilStringTest, ReplaceAgreesWithReplacingInPlaceForAllShortTexts)
{
    const std::vector<std::string> tos = Texts(2);
    for (const std::string& source : Texts(7)) {
        for (const std::string& from : Texts(3)) {
            for (const std::string& to : tos) {
                ASSERT_EQ(Replace(source, from, to), ReplaceInPlace(source, from, to))
                    << source << ", " << from << ", " << to;
            }
        }
    }
}

// With a move of the rest of the text for every match this would take hours.
TEST(UtilStringTest, ReplaceIsLinearWhenEveryByteIsAMatch)
{
    const std::size_t length = 4000000;

    EXPECT_EQ(Replace(std::string(length, 'a'), "a", "bb"), std::string(2 * length, 'b'));
}

// With a comparison of the whole text at every byte this would take hours too.
TEST(UtilStringTest, ReplaceIsLinearWhenEveryPlaceIsNearlyAMatch)
{
    const std::string source(4000000, 'a');

    EXPECT_EQ(Replace(source, std::string(source.size() / 2, 'a') + "b", "c"), source);
}

}  // namespace
