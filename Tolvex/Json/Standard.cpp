#include "Tolvex/Json/Standard.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/Prefetch.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

constexpr ByteSet MakeSpecialBytes()
{
    ByteSet set = MakeByteSet("\"\\");
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        set[byte] = set[byte] || byte < 0x20 || byte >= 0x80;
    }
    return set;
}

/// The bytes of a string that are not simply copied.
constexpr ByteSet specialBytes = MakeSpecialBytes();

/// The bytes at some place that form a character in UTF-8, or as much of one as there is.
struct Character
{
    std::size_t length;
    bool complete;
};

/// Reads a character that is not ASCII.
/// @param bytes  Not empty.
Character ReadCharacter(std::string_view bytes)
{
    const auto byteAt = [bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const unsigned int lead = byteAt(0);
    if (lead < 0xC2 || lead > 0xF4) {
        return {1, false};  // begins no character
    }
    const std::size_t length = lead < 0xE0 ? 2 : (lead < 0xF0 ? 3 : 4);
    // After some leads the second byte has a smaller range: no character has two encodings, none is
    // a surrogate, and none is above U+10FFFF.
    unsigned int lowest = lead == 0xE0 ? 0xA0 : (lead == 0xF0 ? 0x90 : 0x80);
    unsigned int highest = lead == 0xED ? 0x9F : (lead == 0xF4 ? 0x8F : 0xBF);
    for (std::size_t at = 1; at < length; ++at) {
        if (at == bytes.size() || byteAt(at) < lowest || byteAt(at) > highest) {
            return {at, false};
        }
        lowest = 0x80;
        highest = 0xBF;
    }
    return {length, true};
}

void AppendEscaped(char byte, std::string& text)
{
    static constexpr std::string_view meanings = "\"\\\b\f\n\r\t";
    static constexpr std::string_view letters = "\"\\bfnrt";
    static constexpr std::string_view hexDigits = "0123456789abcdef";
    const std::size_t index = meanings.find(byte);
    if (index != std::string_view::npos) {
        text += '\\';
        text += letters[index];
    } else {
        text += "\\u00";
        text += hexDigits[static_cast<unsigned char>(byte) / 16];
        text += hexDigits[static_cast<unsigned char>(byte) % 16];
    }
}

void AppendString(std::string_view bytes, std::string& text)
{
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    text += '"';
    while (at != end) {
        const char* const special = FindFirstIn(specialBytes, at, end);
        text.append(at, special);
        at = special;
        if (at == end) {
            break;
        }
        if (static_cast<unsigned char>(*at) < 0x80) {
            AppendEscaped(*at++, text);
            continue;
        }
        const Character character = ReadCharacter({at, end});
        text += character.complete ? std::string_view(at, character.length) : "\xEF\xBF\xBD";
        at += character.length;
    }
    text += '"';
}

/// @tparam Number  float or double; each has its own shortest text.
template <typename Number>
void AppendFloating(Number number, std::string& text)
{
    if (!std::isfinite(number)) {
        text += "null";
        return;
    }
    std::array<char, 32> digits;
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const std::string_view shortest(digits.data(), end);
    text += shortest;
    if (shortest.find_first_of(".e") == std::string_view::npos) {
        text += ".0";  // or else -0.0 is read as the integer 0
    }
}

void AppendInt(std::int32_t number, std::string& text)
{
    std::array<char, 16> digits;
    text.append(digits.data(),
                std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

/// Appends a scalar, or the opening bracket of a container, whose values are added to the open
/// ones.
void Begin(const Value& value, std::string& text, std::vector<Cursor>& open)
{
    switch (value.GetType()) {
        case NullVal:
            text += "null";
            break;
        case StringVal:
            AppendString(Access::String(value), text);
            break;
        case IntVal:
            AppendInt(Access::Int(value), text);
            break;
        case FloatVal:
            AppendFloating(Access::Float(value), text);
            break;
        case DoubleVal:
            AppendFloating(Access::Double(value), text);
            break;
        case ObjectVal:
            text += '{';
            open.emplace_back(Access::ObjectOf(value));
            break;
        case ArrayVal:
            text += '[';
            open.emplace_back(Access::ArrayOf(value));
            break;
        case BoolVal:
            text += Access::Bool(value) ? "true" : "false";
            break;
    }
}

/// Appends the rest of the open containers, the innermost first, without recursion.
void Finish(std::string& text, std::vector<Cursor>& open)
{
    while (!open.empty()) {
        Cursor& rest = open.back();
        if (rest.AtEnd()) {
            text += rest.OverMembers() ? '}' : ']';
            open.pop_back();
            continue;
        }
        if (text.back() != '[' && text.back() != '{') {
            text += ',';
        }
        if (rest.OverMembers()) {
            AppendString(PrefetchAhead(rest.Key()), text);
            text += ':';
        }
        const Value& value = rest.Current();
        rest.Advance();
        Begin(value, text, open);  // may invalidate rest
    }
}

}  // namespace

std::string SerializeStandard(const Value& value)
{
    std::string text;
    std::vector<Cursor> open;
    Begin(value, text, open);
    Finish(text, open);
    return text;
}

std::string SerializeStandard(const Array& array)
{
    std::string text = "[";
    std::vector<Cursor> open = {Cursor(array)};
    Finish(text, open);
    return text;
}

std::string SerializeStandard(const Object& object)
{
    std::string text = "{";
    std::vector<Cursor> open = {Cursor(object)};
    Finish(text, open);
    return text;
}

}  // namespace Tolvex::Json
