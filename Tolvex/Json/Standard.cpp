#include "Tolvex/Json/Standard.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/Prefetch.h"
#include "Tolvex/Json/Private/StringBody.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

/// The bytes of a string that are not simply copied.
constexpr ByteSet specialBytes = [] {
    ByteSet set = MakeByteSet("\"\\");
    for (std::size_t byte = 0; byte < set.size(); ++byte) {
        set[byte] = set[byte] || byte < 0x20 || byte >= 0x80;
    }
    return set;
}();

int ByteAt(const char* at)
{
    return static_cast<unsigned char>(*at);
}

/// Appends the character at a position; its first byte is not ASCII. Replaces ill-formed UTF-8.
/// @return the position after the character or the part.
const char* AppendCharacter(const char* at, const char* end, std::string& text)
{
    const char* const begin = at++;
    const int lead = ByteAt(begin);
    const bool isLead = lead >= 0xC2 && lead <= 0xF4;
    const int length = lead < 0xE0 ? 2 : (lead < 0xF0 ? 3 : 4);
    // After some leads the second byte has a smaller range: no character has two encodings, none is
    // a surrogate, and none is above U+10FFFF.
    int lowest = lead == 0xE0 ? 0xA0 : (lead == 0xF0 ? 0x90 : 0x80);
    int highest = lead == 0xED ? 0x9F : (lead == 0xF4 ? 0x8F : 0xBF);
    while (isLead && at != end && at - begin < length && ByteAt(at) >= lowest &&
           ByteAt(at) <= highest) {
        ++at;
        lowest = 0x80;
        highest = 0xBF;
    }
    text += at - begin == length ? std::string_view(begin, at) : "\xEF\xBF\xBD";  // U+FFFD
    return at;
}

/// @return the position after the byte.
const char* AppendEscaped(const char* at, std::string& text)
{
    const std::size_t index = escapedBytes.find(*at);
    if (index != std::string_view::npos) {
        text += '\\';
        text += escapeLetters[index];
    } else {
        text += ByteAt(at) < 0x10 ? "\\u000" : "\\u001";
        text += "0123456789abcdef"[ByteAt(at) % 16];
    }
    return at + 1;
}

void AppendString(std::string_view bytes, std::string& text)
{
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    text += '"';
    for (;;) {
        const char* const special = FindFirstIn(specialBytes, at, end);
        text.append(at, special);
        if (special == end) {
            break;
        }
        at = ByteAt(special) < 0x80 ? AppendEscaped(special, text)
                                    : AppendCharacter(special, end, text);
    }
    text += '"';
}

/// Appends the shortest text that reads back as the same number.
template <typename Number>
void AppendNumber(Number number, std::string& text)
{
    if (!std::isfinite(number)) {
        text += "null";
        return;
    }
    std::array<char, 32> digits;
    char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const std::string_view shortest(digits.data(), end);
    text += shortest;
    if (std::is_floating_point_v<Number> && shortest.find_first_of(".e") == shortest.npos) {
        text += ".0";  // or else -0.0 is read as the integer 0
    }
}

/// Appends a scalar, or opens a container: appends its bracket, and a cursor to `open`.
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
            AppendNumber(Access::Int(value), text);
            break;
        case FloatVal:
            AppendNumber(Access::Float(value), text);
            break;
        case DoubleVal:
            AppendNumber(Access::Double(value), text);
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
/// @return the text.
std::string Finish(std::string text, std::vector<Cursor> open)
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
    return text;
}

}  // namespace

std::string SerializeStandard(const Value& value)
{
    std::string text;
    std::vector<Cursor> open;
    Begin(value, text, open);
    return Finish(std::move(text), std::move(open));
}

std::string SerializeStandard(const Array& array)
{
    return Finish("[", {Cursor(array)});
}

std::string SerializeStandard(const Object& object)
{
    return Finish("{", {Cursor(object)});
}

}  // namespace Tolvex::Json
