// A table of texts and what they read as. Every expected result is written by hand; both the
// library and the reference must give it. Judge.h says how a tree is written: 1 is an integer, 1.0
// a double, "null" alone a refused document.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Judge.h"
#include "tests/Json/Reference.h"

namespace Tolvex::Json {
namespace {

using namespace std::string_view_literals;
using Judge::Describe;

constexpr std::string_view outOfRange = "throws std::out_of_range";
constexpr std::string_view nothing = "null";

struct Row
{
    std::string_view name;
    std::string_view text;
    std::string_view result;
};

void PrintTo(const Row& row, std::ostream* stream)
{
    *stream << Judge::Quoted(std::string(row.text));
}

std::string NameOf(const testing::TestParamInfo<Row>& row)
{
    return std::string(row.param.name);
}

class DocumentTableTest : public testing::TestWithParam<Row>
{
};

TEST_P(DocumentTableTest, ReadsAsTheTableSays)
{
    const std::string text(GetParam().text);

    EXPECT_EQ(Describe(Judge::ReadByLibrary(text)), GetParam().result);
    EXPECT_EQ(Describe(Judge::ReadByReference(text)), GetParam().result);
    EXPECT_EQ(Judge::Complaint(text), "");
}

constexpr Row wholeDocuments[] = {
    {"EmptyObject", "{}", "{}"},
    {"EmptyArray", "[]", "[]"},
    {"AllKinds", R"({"a":1,"b":[true,false],"c":"x"})", R"({"a":1,"b":[true,false],"c":"x"})"},
    {"BlanksAroundEveryToken", "  [ 1 , 2 ]  ", "[1,2]"},
    {"EveryKindOfBlankAround", " \t\n\v\f\r[1]\r\f\v\n\t ", "[1]"},
    {"BlanksInsideAnObject", " { \"a\" : 1 , \"b\" : \"x\" } ", R"({"a":1,"b":"x"})"},
    {"EmptyText", "", nothing},
    {"BlankText", " \t\n", nothing},
    {"BareNumber", "5", nothing},
    {"BareString", R"("x")", nothing},
    {"BareTrue", "true", nothing},
    {"BareNull", "null", nothing},
    {"OpeningBracketAlone", "[", nothing},
    {"OpeningBraceAlone", "{", nothing},
    {"ClosingBracketAlone", "]", nothing},
    {"ClosingBraceAlone", "}", nothing},
    {"ArrayClosedAsObject", "[1}", nothing},
    {"ObjectClosedAsArray", R"({"a":1])", nothing},
    {"ArrayWithoutEnd", "[1", nothing},
    {"ArrayWithoutBeginning", "1]", nothing},
    {"TextAfterTheEnd", "[1] x", nothing},
    {"TextBeforeTheBeginning", "x [1]", nothing},
    {"NulBefore", "\000[1]"sv, nothing},
    {"NulAfter", "[1]\000"sv, nothing},
    {"ByteOrderMark", "\357\273\277[1]", nothing},
    {"NoBreakSpaceIsNoBlank", "\240[1]", nothing},
    {"TwoArrays", "[1][2]", outOfRange},
    {"TwoObjects", R"({"a":1}{"b":2})", nothing},
    {"TwoEmptyObjects", "{}{}", nothing},
};
INSTANTIATE_TEST_SUITE_P(WholeDocuments, DocumentTableTest, testing::ValuesIn(wholeDocuments),
                         NameOf);

constexpr Row objects[] = {
    {"OneBlankIsNotEmpty", "{ }", nothing},
    {"ObjectsInside", R"({"a":{"b":{}}})", R"({"a":{"b":{}}})"},
    {"NullMemberIsKept", R"({"a":null})", R"({"a":null})"},
    {"KeysComeInByteOrder", R"({"a":1,"B":2,"_":3,"ab":4})", R"({"B":2,"_":3,"a":1,"ab":4})"},
    {"MissingValueAtTheEndIsNull", R"({"a":})", R"({"a":null})"},
    {"BlankValueAtTheEndIsNull", R"({"a": })", R"({"a":null})"},
    {"MissingValueBeforeACommaIsZero", R"({"a":,"b":1})", R"({"a":0,"b":1})"},
    {"BlankValueBeforeACommaIsZero", R"({"a": ,"b":1})", R"({"a":0,"b":1})"},
    {"MissingValueAndNothingBehindTheComma", R"({"a":,})", nothing},
    {"TrailingCommaAfterAString", R"({"a":"x",})", nothing},
    {"TrailingCommaAfterANumber", R"({"a":1,})", nothing},
    {"TrailingCommaAfterAnArray", R"({"a":[],})", nothing},
    {"LeadingCommaIsSkipped", R"({,"a":1})", R"({"a":1})"},
    {"DoubledCommaIsSkipped", R"({"a":1,,"b":2})", R"({"a":1,"b":2})"},
    {"NoCommaAfterAString", R"({"a":"x" "b":2})", R"({"a":"x","b":2})"},
    {"NoCommaAfterAnArray", R"({"a":[1]"b":2})", R"({"a":[1],"b":2})"},
    {"NoCommaAfterAnObject", R"({"a":{}"b":2})", R"({"a":{},"b":2})"},
    {"NoCommaAfterANumber", R"({"a":1 "b":2})", nothing},
    {"NoCommaAfterALiteral", R"({"a":true "b":2})", nothing},
    {"JunkAfterAStringIsSkipped", R"({"a":"x"junk,"b":2})", R"({"a":"x","b":2})"},
    {"JunkAfterTheLastString", R"({"a":"x"junk})", nothing},
    {"BlankAfterTheLastString", "{\"a\":\"x\" \n}", R"({"a":"x"})"},
    {"BlankAfterTheLastArray", R"({"a":[1] })", R"({"a":[1]})"},
    {"JunkBeforeAKeyIsSkipped", R"({junk"a":1})", R"({"a":1})"},
    {"EmptyKey", R"({"":1})", nothing},
    {"EmptyKeyLater", R"({"a":1,"":2})", nothing},
    {"BlankKeyIsAKey", R"({" ":1})", R"({" ":1})"},
    {"BlanksOfAKeyAreKept", R"({" a ":1})", R"({" a ":1})"},
    {"ColonInsideAKey", R"({"a:b":1})", R"({"a:b":1})"},
    {"BracketsInsideAKey", R"({"]}[{":1})", R"({"]}[{":1})"},
    {"EscapesInAKeyAreNotDecoded", R"({"a\n\u0041":1})", R"({"a\\n\\u0041":1})"},
    {"EscapedQuoteInAKey", R"({"a\"b":1})", R"({"a\\\"b":1})"},
    {"KeyEndingInTwoBackslashes", R"({"a\\":1})", R"({"a\\\\":1})"},
    {"KeyEndingInThreeBackslashes", R"({"a\\\":1})", nothing},
    {"NulInAKey", "{\"a\000b\":1}"sv, R"({"a\000b":1})"},
    {"BackslashHidesTheQuoteOfAKey", R"({\"a":1})", nothing},
    {"TwoBackslashesDoNot", R"({\\"a":1})", R"({"a":1})"},
    {"NoColon", R"({"a" 1})", nothing},
    {"NoValueAndNoColon", R"({"a"})", nothing},
    {"EqualSign", R"({"a"=1})", nothing},
    {"TwoColons", R"({"a"::1})", nothing},
    {"JunkBeforeTheColonIsSkipped", R"({"a" junk :1})", R"({"a":1})"},
    {"ColonOfTheNextMember", R"({"a","b":1})", R"({"a":1})"},
    {"LastMemberWithoutColon", R"({"a":"x","b"})", nothing},
    {"KeyWithoutQuotes", "{a:1}", nothing},
    {"KeyInSingleQuotes", "{'a':1}", nothing},
    {"KeyWithoutClosingQuote", R"({"a:1})", nothing},
    {"RepeatedKeyTheLastWins", R"({"a":1,"b":2,"a":"x"})", R"({"a":"x","b":2})"},
    {"NumberOverAStringHoldsNoString", R"({"a":"x","a":1})", R"({"a":1})"},
    {"NumberOverAnArrayHoldsNoArray", R"({"a":[1],"a":2.5})", R"({"a":2.5})"},
    {"NumberOverAnObjectHoldsNoObject", R"({"a":{"b":1},"a":2})", R"({"a":2})"},
    {"NumberOverTrueHoldsNoTrue", R"({"a":true,"a":2})", R"({"a":2})"},
    {"NullOverAString", R"({"a":"x","a":null})", R"({"a":null})"},
    {"ExtraBraceAfterANumber", R"({"a":1}})", nothing},
    {"ExtraBraceAfterAString", R"({"a":"x"}})", nothing},
    {"ExtraBracketAfterANumber", R"({"a":1]})", nothing},
    {"ExtraBracketAfterAnArray", R"({"a":[1]]})", nothing},
    {"ExtraBracketAfterAnArrayAndAKey", R"({"a":[1]],"b":2})", R"({"a":[1],"b":2})"},
    {"BlankObjectInsideIsNull", R"({"a":{ }})", R"({"a":null})"},
    {"BlankArrayInside", R"({"a":[ ]})", R"({"a":[]})"},
    {"MalformedArrayInsideIsNull", R"({"a":[.5]})", R"({"a":null})"},
    {"MalformedObjectInsideIsNull", R"({"a":{x},"b":1})", R"({"a":null,"b":1})"},
    {"ArrayInsideClosedByABrace", R"({"a":[1}})", nothing},
    {"ObjectInsideClosedByABracket", R"({"a":{"b":1]}})", nothing},
    {"ArrayInsideNotClosed", R"({"a":[1})", outOfRange},
    {"ObjectInsideNotClosed", R"({"a":{"b":1})", outOfRange},
    {"BracketRightBehindAColon", R"({"a":[})", outOfRange},
    {"BraceRightBehindAColon", R"({"a":{})", outOfRange},
};

constexpr Row strings[] = {
    {"Empty", R"([""])", R"([""])"},
    {"Plain", R"({"a":"x"})", R"({"a":"x"})"},
    {"BlanksAtItsEndsAreDropped", R"({"s":"  padded  "})", R"({"s":"padded"})"},
    {"BlanksInsideStay", R"(["a  b"])", R"(["a  b"])"},
    {"NothingButBlanks", R"(["   "])", R"([""])"},
    {"EscapedBlanksAtItsEndsAreDroppedToo", R"(["\n\tx\r\f\u0020\u000b"])", R"(["x"])"},
    {"NoBreakSpaceAtItsEndsStays", R"(["\u00a0x"])", R"(["\240x"])"},
    {"SimpleEscapes", R"(["\"\/\\\b\f\n\r\tx"])", R"(["\"/\\\010\014\012\015\011x"])"},
    {"EscapedQuote", R"({"s":"a\"b"})", R"({"s":"a\"b"})"},
    {"UnicodeEscape", R"({"s":"\u0041"})", R"({"s":"A"})"},
    {"UnicodeEscapeIsOneByte", R"(["\u00e9"])", R"(["\351"])"},
    {"UnicodeEscapeDropsTheHighByte", R"(["\u4e2d"])", R"(["-"])"},
    {"UnicodeEscapeWithUpperCaseDigits", R"(["\u004A\u00AF"])", R"(["J\257"])"},
    {"SurrogatesAreTwoBytes", R"(["\ud83d\ude00"])", R"(["=\000"])"},
    {"FirstTwoHexCharactersMayBeAnything", R"(["\uzz41"])", R"(["A"])"},
    {"HexWithoutDigitsIsZero", R"(["\u00zz"])", R"(["\000"])"},
    {"HexEndsAtTheFirstOtherCharacter", R"(["\u001g"])", R"(["\001"])"},
    {"HexMayBeNegative", R"(["\u00-1"])", R"(["\377"])"},
    {"HexMayHaveAPlus", R"(["\u00+f"])", R"(["\017"])"},
    {"HexMayHaveABlank", R"(["\u00 7"])", R"(["\007"])"},
    {"HexPrefixAloneIsZero", R"(["\u000x"])", R"(["\000"])"},
    {"HexPrefixThenDigits", R"(["\u000x41"])", R"(["\00041"])"},
    {"HexOfOneCharacterAtTheEnd", R"(["\u004"])", R"(["\004"])"},
    {"HexOfNoCharacterAtTheEnd", R"(["\u00"])", R"(["\000"])"},
    {"HexOverAnEscapedQuote", R"(["\u00\"x"])", R"(["\000x"])"},
    {"HexCutOffAfterOneCharacter", R"(["\u0"])", outOfRange},
    {"HexCutOffAtOnce", R"(["\u"])", outOfRange},
    {"HexCutOffBehindText", R"({"s":"some text \u0"})", outOfRange},
    {"HexCutOffInAnArrayInside", R"({"s":[["\u"]]})", outOfRange},
    {"UnknownEscapeVanishes", R"(["a\qb\'c"])", R"(["abc"])"},
    {"EscapedNewlineVanishes", "[\"a\\\nb\"]", R"(["ab"])"},
    {"EscapedNulVanishes", "[\"a\\\000b\"]"sv, R"(["ab"])"},
    {"BackslashLeftAloneAtTheEndStays", R"(["\u00f\\"])", R"(["\017\\"])"},
    {"EscapedBackslashAtTheEnd", R"(["a\\"])", R"(["a\\"])"},
    {"EscapedBackslashAtTheEndInAnObject", R"({"a":"x\\","b":1})", R"({"a":"x\\","b":1})"},
    {"RawControlCharactersStay", "[\"a\n\001\177b\"]", R"(["a\012\001\177b"])"},
    {"RawNulStays", "[\"a\000b\"]"sv, R"(["a\000b"])"},
    {"RawBytesAbove127Stay", "[\"\303\251\377\"]", R"(["\303\251\377"])"},
    {"ColonInside", R"({"a":"b:c"})", R"({"a":"b:c"})"},
    {"CommaInsideAMember", R"({"a":"b,c"})", R"({"a":"b,c"})"},
    {"BracketsInsideAMember", R"({"a":"]}[{"})", R"({"a":"]}[{"})"},
    {"DocumentInsideAMember", R"({"a":"{\"b\":[1,2]}"})", R"({"a":"{\"b\":[1,2]}"})"},
    {"NotClosedInAMember", R"({"a":"x})", nothing},
    {"NotClosedInAnArray", R"(["x])", nothing},
    {"ClosedByAnEscapedQuoteOnly", R"(["x\"])", nothing},
    {"SingleQuotes", "['x']", nothing},
    {"RawQuoteEndsAMember", R"({"a":"x"y"})", nothing},
    {"RawQuotesInAMember", R"({"a":"He said "hi"","b":1})", nothing},
    {"RawQuotesThatMakeAKey", R"({"a":"x"y"z":1})", R"({"a":"x","z":1})"},
    {"RawQuoteEndsAnElement", R"(["He said "hi"",2])", R"(["He said",2])"},
};

constexpr Row arrays[] = {
    {"BlanksAreEmpty", "[ \t\r\n\v\f]", "[]"},
    {"ArraysInside", "[[1],[[]],[2,[3]]]", "[[1],[[]],[2,[3]]]"},
    {"ObjectsInside", R"([{"a":1},{"b":[2]}])", R"([{"a":1},{"b":[2]}])"},
    {"NullIsDropped", "[1,null,2]", "[1,2]"},
    {"NullAloneIsDropped", "[null]", "[]"},
    {"TrailingComma", "[1,2,]", "[1,2]"},
    {"LeadingComma", "[,1]", "[1]"},
    {"CommaAlone", "[,]", "[]"},
    {"CommasAlone", "[ , ,, ]", "[]"},
    {"DoubledComma", "[1,,2]", "[1,2]"},
    {"ExtraBracketEndsTheLastToken", "[1,2]]", "[1,2]"},
    {"BracketSeparatesLikeAComma", "[1]2]", "[1,2]"},
    {"BracketsSeparateLikeCommas", "[1]]]2]", "[1,2]"},
    {"ExtraBracketAfterAnArray", "[[1]],2]", "[[1],2]"},
    {"ExtraBrace", "[1}]", nothing},
    {"BraceAlone", "[}]", nothing},
    {"NoCommaAfterAnArray", "[[1]2]", "[[1],2]"},
    {"NoCommaBetweenArrays", "[[1] [2]]", "[[1],[2]]"},
    {"NoCommaBetweenObjects", R"([{"a":1}{"b":2}])", R"([{"a":1},{"b":2}])"},
    {"NoCommaAfterAStringBeforeAnArray", R"(["a"[1]])", R"(["a",[1]])"},
    {"BlankAfterAStringBeforeAnArray", R"([ "a" [1] ])", R"(["a",[1]])"},
    {"NoCommaAfterANumberBeforeAnArray", "[1[2]]", nothing},
    {"BlankAfterANumberBeforeAnArray", "[1 [2]]", nothing},
    {"JunkAfterAnArray", "[[1]x]", nothing},
    {"JunkAfterAStringIsDropped", R"(["a"junk,1])", R"(["a",1])"},
    {"SecondStringWithoutCommaIsDropped", R"(["a" "b",1])", R"(["a",1])"},
    {"JunkBetweenAStringAndAnArray", R"(["a"b[1]])", nothing},
    {"CommaInAStringCutsIt", R"(["a,b"])", nothing},
    {"CommaBehindABracketInAString", R"(["a[,b"])", R"(["a[,b"])"},
    {"CommaBehindABraceInAString", R"(["a{,b"])", R"(["a{,b"])"},
    {"CommaBeforeABracketInAString", R"(["a,b["])", nothing},
    {"ClosingBracketInAStringCutsIt", R"(["a]b"])", nothing},
    {"ClosingBracketBehindAnOpeningOneInAString", R"(["a[]b"])", R"(["a[]b"])"},
    {"ClosingBraceInAString", R"(["a}b"])", R"(["a}b"])"},
    {"BracketHelpsItsOwnStringOnly", R"(["a[b","c,d"])", nothing},
    {"BracketHelpsEveryStringThatHasOne", R"(["a[,b","c{,d"])", R"(["a[,b","c{,d"])"},
    {"DocumentInsideAString", R"(["[1,2]"])", R"(["[1,2]"])"},
    {"CommaInAStringOfAnArrayInside", R"(["a",["b,c"],"d"])", R"(["a","d"])"},
    {"CommaInAStringOfAnObjectInside", R"([{"a":"b,c"}])", R"([{"a":"b,c"}])"},
    {"ClosingBracketInAStringOfAnArrayInside", R"([["a]"]])", "[]"},
    {"ClosingBracketInAStringOfAnObjectInside", R"([{"a":"]"}])", R"([{"a":"]"}])"},
    {"MalformedArrayInsideIsDropped", "[1,[.5],2]", "[1,2]"},
    {"MalformedObjectInsideIsDropped", "[1,{x},2]", "[1,2]"},
    {"BlankObjectInsideIsDropped", "[1,{ },2]", "[1,2]"},
    {"MalformedDeepInside", "[1,[2,[3,[x]]],4]", "[1,[2,[3]],4]"},
    {"MalformedObjectsDoNotSpoilWhatFollows", R"([{x},{"a":{y}},[{z}],{"b":1}])",
     R"([{"a":null},[],{"b":1}])"},
    {"NotClosedInside", "[[1,2]", outOfRange},
    {"BracketNotClosedInside", "[[]", outOfRange},
    {"BraceNotClosedInside", "[{]", outOfRange},
    {"ObjectNotClosedInside", R"([{"a":1])", outOfRange},
    {"BlankAndBracketNotClosedInside", "[ []", outOfRange},
    {"NotClosedBehindAnElement", "[1,[]", outOfRange},
    {"NumberAndBracketAtTheEnd", "[1[]", nothing},
    {"StringAndBracketAtTheEnd", R"(["[])", nothing},
    {"ClosedWronglyInside", "[[1}]", nothing},
    {"BraceClosedByABracket", "[{]}]", nothing},
    {"BracketClosedByABrace", "[[}]]", nothing},
    {"BracketsCrossed", "[[{]}]", nothing},
    {"EscapedBackslashAtAStringsEndHidesItsQuote", R"([["a\\"],1])", outOfRange},
    {"EscapedBackslashAndABracketInTheNextString", R"({"a":["x\\"],"b":"]"})", nothing},
    {"EscapedQuoteInAnArrayInside", R"([["a\"]"],1])", "[1]"},
    {"BackslashHidesAQuoteOutsideOfStrings", R"([[\"],1])", "[1]"},
};

constexpr Row tokens[] = {
    {"Zero", "[0]", "[0]"},
    {"MinusZeroIsAnInteger", "[-0]", "[0]"},
    {"MinusZeroWithAPoint", "[-0.0]", "[-0.0]"},
    {"PlusSign", "[+5]", "[5]"},
    {"LeadingZerosAreDecimal", "[007]", "[7]"},
    {"LargestInteger", "[2147483647]", "[2147483647]"},
    {"OneAboveTheLargestInteger", "[2147483648]", "[2147483648.0]"},
    {"SmallestInteger", "[-2147483648]", "[-2147483648]"},
    {"OneBelowTheSmallestInteger", "[-2147483649]", "[-2147483649.0]"},
    {"IntegerOf33Bits", R"({"a": 3000000000})", R"({"a":3000000000.0})"},
    {"LargestIntegerOf64Bits", "[9223372036854775807]", "[9.223372036854776e+18]"},
    {"IntegerOf20Digits", "[12345678901234567890]", "[1.2345678901234567e+19]"},
    {"IntegerWhoseLowest64BitsAre1", "[18446744073709551617]", "[1.8446744073709552e+19]"},
    {"LargeIntegerAndALetter", "[99999999999x]", nothing},
    {"LeadingZerosBeforeALargeInteger", "[0000000000000000000000012]", "[12]"},
    {"Double", R"({"a": 2.5})", R"({"a":2.5})"},
    {"PointAtTheEnd", "[1.]", "[1.0]"},
    {"PointBeforeAnyDigit", "[.5]", nothing},
    {"SignAndPointBeforeAnyDigit", "[-.5]", nothing},
    {"TwoPoints", "[1..2]", nothing},
    {"PointsApart", "[1.2.3]", nothing},
    {"Exponent", R"({"a": 1e3})", R"({"a":1000.0})"},
    {"ExponentWithPlus", "[1E+3]", "[1000.0]"},
    {"ExponentWithMinus", "[1e-3]", "[0.001]"},
    {"PointAndExponent", "[1.e2]", "[100.0]"},
    {"PointInTheExponent", "[1e3.5]", nothing},
    {"ExponentWithoutDigits", "[1e]", nothing},
    {"ExponentSignWithoutDigits", "[1e+]", nothing},
    {"ExponentBeforeAnyDigit", "[e1]", nothing},
    {"TwoExponents", "[1e1e1]", nothing},
    {"Overflow", R"({"a": 1e999})", nothing},
    {"NegativeOverflow", "[-1e999]", nothing},
    {"LargestDouble", "[1.7976931348623157e308]", "[1.7976931348623157e+308]"},
    {"JustAboveTheLargestDouble", "[1.7976931348623159e308]", nothing},
    {"SmallestNormalDouble", "[2.2250738585072014e-308]", "[2.2250738585072014e-308]"},
    {"InexactUnderflow", "[1e-310]", nothing},
    {"Underflow", "[1e-400]", nothing},
    {"ExactUnderflow", "[0x1.p-1074]", "[5e-324]"},
    {"ZeroWithAHugeExponent", "[0e999999999999999999999]", "[0.0]"},
    {"HalfwayRoundsToEven", "[9007199254740993.0]", "[9007199254740992.0]"},
    {"JustAboveHalfwayRoundsUp", "[9007199254740993.00000000000000000000001]",
     "[9007199254740994.0]"},
    {"OutOfTheFloatsRange", "[1e39]", "[1e+39]"},
    {"HexadecimalWithoutE", "[0x1f]", nothing},
    {"HexadecimalPlain", "[0x10]", nothing},
    {"HexadecimalWithE", "[0x1e]", "[30.0]"},
    {"HexadecimalWithCapitalE", "[0X1E]", "[30.0]"},
    {"HexadecimalWithEFirst", "[0xe1]", "[225.0]"},
    {"HexadecimalWithTwoE", "[0x1ee]", nothing},
    {"HexadecimalWithPoint", "[0x1.8p3]", "[12.0]"},
    {"HexadecimalWithASignBehindE", "[0x1e+2]", nothing},
    {"NotANumber", "[nan]", nothing},
    {"NotANumberWithAPayloadThatHasAnE", "[nan(0e)]",
     "[number 4(int 0, float 7fc00000, double 7ff8000000000000)]"},
    {"NotANumberWithAPayloadThatIsAnE", "[nan(e)]", nothing},
    {"Infinity", "[inf]", nothing},
    {"InfinityInFull", "[-infinity]", nothing},
    {"SignAlone", "[-]", nothing},
    {"TwoSigns", "[--1]", nothing},
    {"BlanksInsideANumberAreDropped", "[1 2]", "[12]"},
    {"BlanksBehindASignAreDropped", "[- \t3]", "[-3]"},
    {"BlanksAroundAPointAreDropped", "{\"a\":1 .\n5}", R"({"a":1.5})"},
    {"LettersBehindANumber", "[12x]", nothing},
    {"Underscore", "[1_000]", nothing},
    {"Apostrophe", "[1'000]", nothing},
    {"Colon", "[5:6]", nothing},
    {"ColonInAMember", R"({"a":5:6})", nothing},
    {"NulBehindANumber", "[1\000]"sv, nothing},
    {"NulInsideANumber", "[1\0002]"sv, nothing},
    {"NulBehindADouble", "[1.5\000]"sv, nothing},
    {"NulAlone", "[\000]"sv, nothing},
    {"NulAloneInAMember", "{\"a\":\000}"sv, nothing},
    {"NulBehindTrue", "[true\000]"sv, nothing},
    {"NoBreakSpaceIsNoBlank", "[\2401]", nothing},
    {"BytesAbove127", "[\303\251]", nothing},
    {"Literals", "[true,false,null]", "[true,false]"},
    {"BlanksInsideLiteralsAreDropped", "[t r u e,fals e,nul l]", "[true,false]"},
    {"NullWithBlanksInAMember", R"({"a":n u l l})", R"({"a":null})"},
    {"UpperCaseTrue", "[TRUE]", nothing},
    {"CapitalisedTrue", "[True]", nothing},
    {"TrueWithCapitalE", "[truE]", nothing},
    {"FalseWithCapitalE", "[falsE]", nothing},
    {"UpperCaseNull", "[NULL]", nothing},
    {"TrueWithTooManyLetters", "[truee]", nothing},
    {"TrueWithTooFewLetters", "[tru]", nothing},
    {"DigitBeforeTrue", "[1true]", nothing},
    {"DigitBehindTrue", "[true1]", nothing},
    {"NullWithAnE", "[nulle]", nothing},
    {"BackslashInALiteral", R"([tru\u0065])", nothing},
    {"QuoteInsideANumber", R"([1"2])", nothing},
    {"Comment", "[1 /* one */]", nothing},
    {"Undefined", "[undefined]", nothing},
};

INSTANTIATE_TEST_SUITE_P(Objects, DocumentTableTest, testing::ValuesIn(objects), NameOf);
INSTANTIATE_TEST_SUITE_P(Strings, DocumentTableTest, testing::ValuesIn(strings), NameOf);
INSTANTIATE_TEST_SUITE_P(Arrays, DocumentTableTest, testing::ValuesIn(arrays), NameOf);
INSTANTIATE_TEST_SUITE_P(Tokens, DocumentTableTest, testing::ValuesIn(tokens), NameOf);

TEST(DeserializeTest, MirrorsOfNumbersAreFilledTogether)
{
    const Value document = Deserialize("[7,-2.75,1e39,3000000000,-1e300]");

    ASSERT_EQ(document.size(), 5);
    EXPECT_EQ(document[0u].ToFloat(), 7.0F);
    EXPECT_EQ(document[0u].ToDouble(), 7.0);
    EXPECT_EQ(document[1u].ToInt(), -2);
    EXPECT_EQ(document[1u].ToFloat(), -2.75F);
    EXPECT_EQ(document[2u].ToFloat(), std::numeric_limits<float>::infinity());
    EXPECT_EQ(document[3u].ToInt(), std::numeric_limits<int>::max());
    EXPECT_EQ(document[4u].ToInt(), std::numeric_limits<int>::min());
}

TEST(DeserializeTest, MembersHoldNothingInactiveAlsoAfterARepeatedKey)
{
    Value document = Deserialize(R"({"a":"x","a":true,"a":[1],"a":{"b":1},"a":null})");

    document["a"] = Value(5);

    EXPECT_TRUE(Value(std::string()) == document["a"]);
    EXPECT_TRUE(Value(Array()) == document["a"]);
    EXPECT_TRUE(Value(Object()) == document["a"]);
    EXPECT_TRUE(Value(false) == document["a"]);
}

TEST(DeserializeTest, RefusedDocumentHoldsNothing)
{
    Value document = Deserialize(R"({"a":[1,2],"b":"x",})");
    ASSERT_EQ(document.GetType(), NullVal);

    document = Value(5);

    EXPECT_TRUE(Value(Object()) == document);
}

TEST(DeserializeTest, ContainerThatIsReadTwiceOverKeepsItsElements)
{
    const std::string inner = R"([{"a":[1,{"b":[2,"]"]}]},"x"])";

    EXPECT_EQ(Describe(Judge::ReadByLibrary("[" + inner + "," + inner + "]")),
              R"([[{"a":[1,{"b":null}]},"x"],[{"a":[1,{"b":null}]},"x"]])");
}

TEST(DeserializeTest, HundredsOfLevelsReadAsTheReferenceReadsThem)
{
    for (const std::size_t depth : {1U, 2U, 50U, 300U}) {
        const std::string opening(depth, '[');
        const std::string closing(depth, ']');
        for (const char* middle : {"", "1", ".5", "]", "[", "]["}) {
            std::string text = opening;
            text.append(middle).append(closing);
            EXPECT_EQ(Judge::Complaint(text), "");
            text.insert(0, "{\"a\":").append("}");
            EXPECT_EQ(Judge::Complaint(text), "");
        }
    }
}

// ------------------------------------------------------------------------------------- writing

using Reference::FromBool;
using Reference::FromDouble;
using Reference::FromInt;
using Reference::FromString;
using Reference::Node;

Node ArrayOf(std::vector<Node> elements)
{
    Node node = Reference::EmptyArray();
    node.elements = std::move(elements);
    return node;
}

Node ObjectOf(std::map<std::string, Node> members)
{
    Node node = Reference::EmptyObject();
    node.members = std::move(members);
    return node;
}

Node FromFloat(float number)
{
    Node node = FromDouble(static_cast<double>(number));
    node.kind = Reference::Kind::Float;
    return node;
}

struct WritingRow
{
    std::string_view name;
    Node tree;
    std::string document;  ///< what Serialize() gives
    std::string value;     ///< what SerializeValue() gives
};

void PrintTo(const WritingRow& row, std::ostream* stream)
{
    *stream << Describe(row.tree);
}

class WritingTableTest : public testing::TestWithParam<WritingRow>
{
};

TEST_P(WritingTableTest, WritesAsTheTableSays)
{
    const WritingRow& row = GetParam();
    const Value value = Judge::ToValue(row.tree);

    EXPECT_EQ(Serialize(value), row.document);
    EXPECT_EQ(SerializeValue(value), row.value);
    EXPECT_EQ(Reference::Serialize(row.tree), row.document);
    EXPECT_EQ(Reference::SerializeValue(row.tree), row.value);
}

/// A value that is not a document.
WritingRow Scalar(std::string_view name, const Node& tree, const std::string& value)
{
    return {name, tree, "", value};
}

WritingRow Container(std::string_view name, const Node& tree, const std::string& text)
{
    return {name, tree, text, text};
}

const double infinity = std::numeric_limits<double>::infinity();

INSTANTIATE_TEST_SUITE_P(
    Scalars, WritingTableTest,
    testing::Values(
        Scalar("Null", Node(), "null"), Scalar("True", FromBool(true), "true"),
        Scalar("False", FromBool(false), "false"), Scalar("Integer", FromInt(5), "5"),
        Scalar("NegativeInteger", FromInt(-3), "-3"),
        Scalar("SmallestInteger", FromInt(std::numeric_limits<std::int32_t>::min()), "-2147483648"),
        Scalar("Double", FromDouble(1.5), "1.500000"), Scalar("Tenth", FromDouble(0.1), "0.100000"),
        Scalar("TooSmallForSixDecimals", FromDouble(1e-7), "0.000000"),
        Scalar("TooSmallAndNegative", FromDouble(-1e-7), "-0.000000"),
        Scalar("HalfOfTheLastDecimal", FromDouble(0.0000005), "0.000000"),
        Scalar("HalfwayRoundsToEven", FromDouble(0.5078125), "0.507812"),
        Scalar("HalfwayRoundsUpToEven", FromDouble(0.5234375), "0.523438"),
        Scalar("JustAboveHalfway", FromDouble(0.5078125000000001), "0.507813"),
        Scalar("NegativeZero", FromDouble(-0.0), "-0.000000"),
        Scalar("LargeDouble", FromDouble(1e20), "100000000000000000000.000000"),
        Scalar("NotANumber", FromDouble(std::numeric_limits<double>::quiet_NaN()), "nan"),
        Scalar("NegativeNotANumber", FromDouble(-std::numeric_limits<double>::quiet_NaN()), "-nan"),
        Scalar("Infinity", FromDouble(infinity), "inf"),
        Scalar("NegativeInfinity", FromDouble(-infinity), "-inf"),
        Scalar("Float", FromFloat(0.1F), "0.100000"),
        Scalar("LargeFloat", FromFloat(16777216.0F), "16777216.000000"),
        Scalar("String", FromString("a"), "\"a\""),
        Scalar("QuotesAreWrittenRaw", FromString("He said \"hi\""), "\"He said \"hi\"\""),
        Scalar("BackslashAndControlCharactersAreWrittenRaw",
               FromString(std::string("\\\n\0\x01\xff", 5)), std::string("\"\\\n\0\x01\xff\"", 7))),
    [](const auto& row) { return std::string(row.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Containers, WritingTableTest,
    testing::Values(
        Container("EmptyArray", Reference::EmptyArray(), "[]"),
        Container("EmptyObject", Reference::EmptyObject(), "{}"),
        Container("MembersInKeyOrder",
                  ObjectOf({{"b", FromInt(2)}, {"a", FromString("x")}, {"c", FromBool(true)}}),
                  R"({"a":"x","b":2,"c":true})"),
        Container("KeysInByteOrder",
                  ObjectOf({{"a", FromInt(1)}, {"B", FromInt(2)}, {"_", FromInt(3)}}),
                  R"({"B":2,"_":3,"a":1})"),
        Container("MixedArray",
                  ArrayOf({FromDouble(1.5), Node(), Reference::EmptyArray(),
                           Reference::EmptyObject()}),
                  "[1.500000,null,[],{}]"),
        Container("Nested", ObjectOf({{"k", ArrayOf({ObjectOf({{"z", FromBool(false)}})})}}),
                  R"({"k":[{"z":false}]})"),
        Container("EmptyKeyAndRawKey", ObjectOf({{"", FromInt(1)}, {"\"\\", FromInt(2)}}),
                  "{\"\":1,\"\"\\\":2}")),
    [](const auto& row) { return std::string(row.param.name); });

TEST(WritingTest, LargestDoubleIsWrittenWithAllItsDigits)
{
    const Node largest = FromDouble(std::numeric_limits<double>::max());

    const std::string text = SerializeValue(Judge::ToValue(largest));

    EXPECT_EQ(text, Reference::SerializeValue(largest));
    EXPECT_EQ(text.size(), 316U);
    EXPECT_EQ(text.substr(0, 17), "17976931348623157");
}

}  // namespace
}  // namespace Tolvex::Json
