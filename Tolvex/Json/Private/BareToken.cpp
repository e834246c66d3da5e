#include "Tolvex/Json/Private/BareToken.h"

#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Characters.h"

namespace Tolvex::Json {

namespace {

/// A token without its blanks, and what its characters have shown.
struct Token
{
    std::string text;
    bool digit = false;
    bool point = false;
    bool exponent = false;
};

/// @return false when the character is an error where it stands.
bool AddExponentMark(Token& token, char mark)
{
    // Required: the last letter of true and false passes here, whatever follows.
    if (token.text != "tru" && token.text != "fals") {
        if (!token.digit || token.exponent) {
            return false;
        }
        token.exponent = true;
    }
    token.text += mark;
    return true;
}

/// @return false when the character is an error where it stands.
bool AddCharacter(Token& token, char character)
{
    switch (character) {
        case '[':
        case ']':
        case '{':
        case '}':
            // Closing brackets, too: one that matches an open container would still be part of the
            // token, and no token with a bracket in it converts.
        case '\0':
            // Required: a NUL converts to nothing, wherever it stands.
            return false;
        case 'e':
        case 'E':
            return AddExponentMark(token, character);
        case '.':
            // Required: a point needs a digit before it.
            if (!token.digit) {
                return false;
            }
            token.point = true;
            break;
        default:
            // Required: blanks vanish, so that "1 2" is 12.
            if (IsSpace(character)) {
                return true;
            }
            token.digit = token.digit || IsDigit(character);
            break;
    }
    token.text += character;
    return true;
}

/// strtod() in the C locale, whatever the process's; the whole text must convert without any error.
bool ConvertToDouble(const std::string& text, Value& value)
{
    // No allocation and no lock: the C library keeps this one.
    const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t{});
    char* end = nullptr;
    errno = 0;
    // Required: all that strtod() takes is a number here, hexadecimal ones and nan(...) included.
    const double number = strtod_l(text.c_str(), &end, cLocale);
    // Required: any error of strtod() refuses the number, underflow as well.
    if (errno != 0 || end != text.c_str() + text.size()) {
        return false;
    }
    Access::SetDouble(value, number);
    return true;
}

/// Reads an integer as a 32-bit strtol() does; what it reports as out of range becomes a double.
bool ConvertToInt(const std::string& text, Value& value)
{
    char* end = nullptr;
    const long long number = strtoll(text.c_str(), &end, 10);
    if (end != text.c_str() + text.size()) {
        return false;
    }
    if (number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        return ConvertToDouble(text, value);
    }
    // Required: an empty token is 0.
    Access::SetInt(value, static_cast<std::int32_t>(number));
    return true;
}

bool Convert(const Token& token, Value& value)
{
    if (token.text == "true" || token.text == "false") {
        Access::SetBool(value, token.text == "true");
        return true;
    }
    if (token.point || token.exponent) {
        return ConvertToDouble(token.text, value);
    }
    return token.text == "null" || ConvertToInt(token.text, value);
}

}  // namespace

const char* ReadBareToken(const char* begin, const char* end, Value& value)
{
    Token token;
    const char* at = begin;
    for (; at != end && *at != ','; ++at) {
        if (!AddCharacter(token, *at)) {
            return nullptr;
        }
    }
    return Convert(token, value) ? at : nullptr;
}

}  // namespace Tolvex::Json
