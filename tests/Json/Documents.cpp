#include "tests/Json/Documents.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <utility>

namespace Tolvex::Json::Judge {
namespace {

using namespace std::string_view_literals;

/// Numbers, almost numbers, and other tokens without quotes.
constexpr auto tokens = std::to_array<std::string_view>({
    "0"sv,
    "-0"sv,
    "+5"sv,
    "-1"sv,
    "007"sv,
    "12345"sv,
    "1 2"sv,
    "- 3"sv,
    ""sv,
    "-"sv,
    "+"sv,
    "2147483647"sv,
    "2147483648"sv,
    "-2147483648"sv,
    "-2147483649"sv,
    "3000000000"sv,
    "9223372036854775807"sv,
    "9223372036854775808"sv,
    "-9223372036854775809"sv,
    "12345678901234567890"sv,
    "99999999999x"sv,
    "1.5"sv,
    "1."sv,
    ".5"sv,
    "-.5"sv,
    "1..2"sv,
    "1.2.3"sv,
    "-0.0"sv,
    "0.1"sv,
    "2.2250738585072014e-308"sv,
    "4.9e-324"sv,
    "1e-310"sv,
    "0x1p-1074"sv,
    "0x1.p-1074"sv,
    "0x1.8p3"sv,
    "0x1e"sv,
    "0x1f"sv,
    "0x"sv,
    "0x1.p"sv,
    "1e3"sv,
    "1E+3"sv,
    "1e-3"sv,
    "1e"sv,
    "1e+"sv,
    "e1"sv,
    "1e1e1"sv,
    "1e999"sv,
    "-1e999"sv,
    "1e308"sv,
    "1.7976931348623157e308"sv,
    "1.7976931348623159e308"sv,
    "1e400000000000000000000"sv,
    "0e400000000000000000000"sv,
    "1e-400000000000000000000"sv,
    "123456789012345678901234567890.5"sv,
    "0.000000000000000000000000000001"sv,
    "9007199254740993.0"sv,
    "1.00000000000000011102230246251"sv,
    "2147483647.5"sv,
    "-2147483648.9"sv,
    "4294967296.25"sv,
    "1e10"sv,
    "1e39"sv,
    "3.4028236e38"sv,
    "nan"sv,
    "inf"sv,
    "-inf"sv,
    "infinity"sv,
    "nan(0e)"sv,
    "nan(0x1e)"sv,
    "-nan(1e)"sv,
    "nan(0.)"sv,
    "1e5f"sv,
    "0inf."sv,
    "true"sv,
    "false"sv,
    "null"sv,
    "TRUE"sv,
    "True"sv,
    "tru"sv,
    "truee"sv,
    "t r u e"sv,
    "fals e"sv,
    "tru\ne"sv,
    "nul l"sv,
    "nulle"sv,
    "falsee"sv,
    "fals"sv,
    "e"sv,
    "truE"sv,
    "falsE"sv,
    "xtrue"sv,
    "1true"sv,
    "1,000"sv,
    "1_000"sv,
    "1'0"sv,
    "12\0003"sv,
    "\000"sv,
    "1\000"sv,
    "true\000"sv,
    "1.5\000"sv,
    "\303\251"sv,
    "\377"sv,
    "1\2402"sv,
    "//x"sv,
    "undefined"sv,
    "1d5"sv,
    "1.5e3"sv,
    "1e3.5"sv,
    "5:6"sv,
    "\\"sv,
    "'a'"sv,
});

/// Parts of strings, allowed ones and others.
constexpr auto stringPieces = std::to_array<std::string_view>({
    "a"sv,
    "key"sv,
    "x y"sv,
    " "sv,
    "\t"sv,
    "\n"sv,
    "  "sv,
    "\\\""sv,
    "\\\\"sv,
    "\\/"sv,
    "\\b"sv,
    "\\f"sv,
    "\\n"sv,
    "\\r"sv,
    "\\t"sv,
    "\\u0041"sv,
    "\\u00e9"sv,
    "\\u4e2d"sv,
    "\\u0000"sv,
    "\\u0020"sv,
    "\\u0022"sv,
    "\\u005c"sv,
    "\\u00zz"sv,
    "\\u001g"sv,
    "\\u00-1"sv,
    "\\u00+f"sv,
    "\\u00 1"sv,
    "\\u000x"sv,
    "\\u00"sv,
    "\\u004"sv,
    "\\u0"sv,
    "\\u"sv,
    "\\x"sv,
    "\\'"sv,
    "\\\\\\\""sv,
    "\\ "sv,
    "\\\n"sv,
    "["sv,
    "]"sv,
    "{"sv,
    "}"sv,
    "[1]"sv,
    "{\\\"a\\\":1}"sv,
    ","sv,
    ":"sv,
    "a,b"sv,
    "a[,b"sv,
    "\""sv,
    "\\"sv,
    "\303\244"sv,
    "\377\376"sv,
    "\000"sv,
    "\001"sv,
    "\177"sv,
    "null"sv,
    "\\u12"sv,
    "\\u00A"sv,
    "\\\000"sv,
    "\v\f\r"sv,
    "\302\240"sv,
});

/// Single characters that may spoil a text.
constexpr auto strokes = std::to_array<std::string_view>({
    "\""sv,    "\""sv,    "\\"sv,    "\\"sv,   "\\\\"sv,  "\\\""sv,      "["sv,         "]"sv,
    "{"sv,     "}"sv,     "[]"sv,    "{}"sv,   "[["sv,    "]]"sv,        "{\""sv,       "\"}"sv,
    ","sv,     ",,"sv,    ":"sv,     "\":"sv,  " "sv,     "\t"sv,        "\n"sv,        "\v"sv,
    "\000"sv,  "\200"sv,  "\377"sv,  "\240"sv, "e"sv,     "E"sv,         "."sv,         "-"sv,
    "+"sv,     "0"sv,     "9"sv,     "u"sv,    "\\u"sv,   "\\u00"sv,     "null"sv,      "true"sv,
    "],["sv,   "},{"sv,   "\",\""sv, "]["sv,   "[1,2]"sv, "{\"a\":1}"sv, "[\"a,b\"]"sv, "\"[\""sv,
    "\"]\""sv, "\"{\""sv,
});

constexpr auto blanks = std::to_array<std::string_view>({
    " "sv,
    "  "sv,
    "\n"sv,
    "\t"sv,
    "\r\n"sv,
    "\v"sv,
    "\f"sv,
    " \n "sv,
});

/// Texts where the search for an end and the search for a quote can disagree.
constexpr auto knots = std::to_array<std::string_view>({
    "\""sv,    "\""sv,    "\\\""sv, "\\\\\""sv, "\"x\\\\\""sv, "\"x\""sv,   "\"[\""sv, "\"]\""sv,
    "\"{\""sv, "\"}\""sv, "\\"sv,   "\\\\"sv,   "["sv,         "["sv,       "["sv,     "]"sv,
    "]"sv,     "]"sv,     "{"sv,    "}"sv,      "{\"k\":"sv,   "{\"k\":"sv, "}"sv,     ","sv,
    ","sv,     ","sv,     ":"sv,    "1"sv,      "\"a\":"sv,    " "sv,
});

constexpr std::string_view brackets = "[]{}";

constexpr int maxDepth = 5;
constexpr std::size_t longestGraft = 40;

template <typename Table>
auto Pick(const Table& table, Random& random)
{
    return table[random.Below(std::size(table))];
}

Reference::Node MakeNumber(Random& random)
{
    switch (random.Below(4)) {
        case 0:
            return Reference::FromInt(static_cast<std::int32_t>(random.Next() >> 32));
        case 1:
            return Reference::FromInt(static_cast<std::int32_t>(random.Below(200)) - 100);
        case 2:
            return Reference::FromDouble(static_cast<double>(random.Below(2000000)) / 1000.0);
        default:
            return Reference::FromDouble(std::bit_cast<double>(random.Next()));
    }
}

Reference::Node MakeFloat(Random& random)
{
    Reference::Node node;
    node = Reference::FromDouble(static_cast<double>(
        std::bit_cast<float>(static_cast<std::uint32_t>(random.Below(0x7f000000)))));
    node.kind = Reference::Kind::Float;
    return node;
}

std::string MakeBytes(Random& random)
{
    std::string bytes;
    const std::size_t pieces = random.Below(4);
    for (std::size_t i = 0; i < pieces; ++i) {
        if (random.OneIn(4)) {
            bytes += static_cast<char>(random.Below(256));
        } else {
            bytes += Pick(stringPieces, random);
        }
    }
    return bytes;
}

}  // namespace

std::uint64_t Random::Next()
{
    state += 0x9e3779b97f4a7c15u;
    std::uint64_t mixed = state;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebu;
    return mixed ^ (mixed >> 31);
}

std::size_t Random::Below(std::size_t bound)
{
    return static_cast<std::size_t>((Next() >> 32) % bound);
}

std::string DocumentMaker::Make()
{
    text.clear();
    switch (random.Below(64)) {
        case 0:
        case 1:
        case 2:
            AppendHeap();
            break;
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
        case 8:
            AppendKnots();
            break;
        case 9:
        case 10:
        case 11:
            AppendTower();
            break;
        case 12:
            AppendCollection();
            break;
        default:
            AppendDocument();
    }
    if (random.OneIn(2)) {
        Spoil();
    }
    previous = text;
    return text;
}

void DocumentMaker::AppendDocument()
{
    AppendBlanks();
    if (random.OneIn(2)) {
        AppendObject(0);
    } else {
        AppendArray(0);
    }
    AppendBlanks();
}

void DocumentMaker::AppendValue(int depth)
{
    AppendBlanks();
    const std::size_t kind = random.Below(depth < maxDepth ? 8 : 4);
    if (kind < 2) {
        AppendScalar();
    } else if (kind < 4) {
        AppendString();
    } else if (kind < 6) {
        AppendArray(depth + 1);
    } else {
        AppendObject(depth + 1);
    }
    AppendBlanks();
}

void DocumentMaker::AppendObject(int depth)
{
    text += '{';
    const std::size_t count = random.Below(5);
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "" : ",";
        AppendMember(depth);
    }
    text += '}';
}

void DocumentMaker::AppendMember(int depth)
{
    AppendBlanks();
    if (random.OneIn(8)) {
        AppendString();
    } else {
        text += '"';
        text += static_cast<char>('a' + random.Below(4));
        text += '"';
    }
    AppendBlanks();
    text += ':';
    AppendValue(depth);
}

void DocumentMaker::AppendArray(int depth)
{
    text += '[';
    const std::size_t count = random.Below(5);
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "" : ",";
        AppendValue(depth);
    }
    text += ']';
}

void DocumentMaker::AppendScalar()
{
    switch (random.Below(8)) {
        case 0:
            text += Pick(tokens, random);
            break;
        case 1:
        case 2:
            text += Pick(std::to_array<std::string_view>({"true", "false", "null"}), random);
            break;
        default:
            AppendNumber();
    }
}

void DocumentMaker::AppendNumber()
{
    text += Pick(std::to_array<std::string_view>({"", "", "", "-"}), random);
    AppendDigits();
    if (random.OneIn(2)) {
        text += '.';
        AppendDigits();
    }
    if (random.OneIn(4)) {
        text += Pick(std::to_array<std::string_view>({"e", "E", "e-", "e+", "E-"}), random);
        text += std::to_string(random.Below(random.OneIn(4) ? 400 : 25));
    }
}

void DocumentMaker::AppendDigits()
{
    const std::size_t count = random.OneIn(6) ? random.Below(30) : 1 + random.Below(6);
    for (std::size_t i = 0; i < count; ++i) {
        text += static_cast<char>('0' + random.Below(10));
    }
}

void DocumentMaker::AppendString()
{
    text += '"';
    const std::size_t count = random.Below(4);
    for (std::size_t i = 0; i < count; ++i) {
        AppendStringPiece();
    }
    text += '"';
}

void DocumentMaker::AppendStringPiece()
{
    if (random.OneIn(6)) {
        text += Pick(stringPieces, random);
        return;
    }
    const std::size_t count = 1 + random.Below(8);
    for (std::size_t i = 0; i < count; ++i) {
        text += static_cast<char>('a' + random.Below(26));
    }
}

void DocumentMaker::AppendBlanks()
{
    if (random.OneIn(8)) {
        text += Pick(blanks, random);
    }
}

/// Many levels, closed again by the right brackets, by too few, or by wrong ones.
void DocumentMaker::AppendTower()
{
    const std::size_t levels = 1 + random.Below(random.OneIn(16) ? 200 : 20);
    std::string closing;
    for (std::size_t i = 0; i < levels; ++i) {
        const bool array = random.OneIn(2);
        text += array ? "[" : "{\"k\":";
        if (array && random.OneIn(3)) {
            AppendScalar();
            text += ',';
        }
        closing += array ? ']' : '}';
    }
    AppendScalar();
    if (random.OneIn(8)) {
        closing.resize(random.Below(closing.size() + 1));
    }
    text.append(closing.rbegin(), closing.rend());
}

/// Pieces one after the other, mostly between brackets.
void DocumentMaker::AppendHeap()
{
    const std::size_t kind = random.Below(5);
    const std::size_t count = random.Below(12);
    text += kind < 2 ? "[" : (kind < 4 ? "{\"a\":" : "");
    for (std::size_t i = 0; i < count; ++i) {
        text += random.OneIn(3) ? Pick(tokens, random) : Pick(strokes, random);
    }
    text += kind < 2 ? "]" : (kind < 4 ? "}" : "");
}

/// Quotes, backslashes and brackets, two levels deep.
void DocumentMaker::AppendKnots()
{
    const bool array = random.OneIn(2);
    const std::size_t count = random.Below(16);
    text += array ? "[[" : "{\"a\":[";
    for (std::size_t i = 0; i < count; ++i) {
        text += Pick(knots, random);
    }
    text += array ? "]]" : "]}";
}

/// Many documents as the elements of one.
void DocumentMaker::AppendCollection()
{
    text += '[';
    const std::size_t count = 2 + random.Below(15);
    for (std::size_t i = 0; i < count; ++i) {
        text += i == 0 ? "" : ",";
        if (random.OneIn(4)) {
            AppendKnots();
        } else {
            AppendDocument();
        }
    }
    text += ']';
}

void DocumentMaker::Spoil()
{
    const std::size_t times = 1 + random.Below(random.OneIn(4) ? 8 : 2);
    for (std::size_t i = 0; i < times; ++i) {
        SpoilOnce();
    }
    if (random.OneIn(2) && !text.empty()) {
        // A text spoilt at its end is mostly refused at once. Spoil the inside instead.
        const bool array = text.find('[') < text.find('{');
        text = (array ? '[' : '{') + text + (array ? ']' : '}');
    }
}

std::size_t DocumentMaker::Position()
{
    return random.Below(text.size() + 1);
}

void DocumentMaker::SpoilOnce()
{
    const std::size_t at = Position();
    switch (random.Below(12)) {
        case 0:
            text.resize(at);
            break;
        case 1:
            text.erase(0, at);
            break;
        case 2:
            text.erase(at, 1 + random.Below(4));
            break;
        case 3:
        case 4:
            SwapBracket();
            break;
        case 5:
            if (at < text.size()) {
                text[at] = static_cast<char>(text[at] ^ (1 << random.Below(8)));
            }
            break;
        case 6:
            if (at < text.size()) {
                text[at] = static_cast<char>(random.Below(256));
            }
            break;
        case 7:
            CopyRange();
            break;
        case 8:
            text.insert(at, Pick(tokens, random));
            break;
        case 9:
            text.insert(at, Pick(stringPieces, random));
            break;
        default:
            text.insert(at, Pick(strokes, random));
    }
}

/// Turns one bracket into another, or drops it.
void DocumentMaker::SwapBracket()
{
    std::size_t at = text.find_first_of(brackets, Position());
    if (at == std::string::npos) {
        at = text.find_first_of(brackets);
    }
    if (at == std::string::npos) {
        return;
    }
    if (random.OneIn(5)) {
        text.erase(at, 1);
    } else {
        text[at] = Pick(brackets, random);
    }
}

/// Grafts a piece of this document or of the one before.
void DocumentMaker::CopyRange()
{
    const std::string& source = random.OneIn(2) ? text : previous;
    if (source.empty()) {
        return;
    }
    const std::size_t from = random.Below(source.size());
    const std::string piece = source.substr(from, 1 + random.Below(longestGraft));
    text.insert(Position(), piece);
}

Reference::Node MakeTree(Random& random, int depth)
{
    const std::size_t kind = random.Below(depth < maxDepth ? 9 : 6);
    if (kind < 2) {
        return random.OneIn(4) ? MakeFloat(random) : MakeNumber(random);
    }
    if (kind < 4) {
        return Reference::FromString(MakeBytes(random));
    }
    if (kind < 6) {
        return random.OneIn(2) ? Reference::Node() : Reference::FromBool(random.OneIn(2));
    }

    Reference::Node node = kind == 6 ? Reference::EmptyObject() : Reference::EmptyArray();
    const std::size_t count = random.Below(5);
    for (std::size_t i = 0; i < count; ++i) {
        if (kind == 6) {
            node.members[MakeBytes(random)] = MakeTree(random, depth + 1);
        } else {
            node.elements.push_back(MakeTree(random, depth + 1));
        }
    }
    return node;
}

}  // namespace Tolvex::Json::Judge
