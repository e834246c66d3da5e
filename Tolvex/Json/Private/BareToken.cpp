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

/// A token without its blanks, and which kinds of characters it has.
struct Token
{
    std::string text;
    bool digit = false;
    bool point = false;
    bool exponent = false;
};

/// @return false if the character is an error at this place.
bool AddExponentMark(Token& token, char mark)
{
    // After these letters the e belongs to true or false and is no exponent.
    if (token.text != "tru" && token.text != "fals") {
        if (!token.digit || token.exponent) {
            return false;
        }
        token.exponent = true;
    }
    token.text += mark;
    return true;
}

/// @return false if the character is an error at this place.
bool AddCharacter(Token& token, char character)
{
    switch (character) {
        case '[':
        case ']':
        case '{':
        case '}':
            // A closing bracket, too: it would become part of the token, which then cannot convert.
        case '\0':
            // A token with a NUL in it cannot convert.
            return false;
        case 'e':
        case 'E':
            return AddExponentMark(token, character);
        case '.':
            if (!token.digit) {
                return false;
            }
            token.point = true;
            break;
        default:
            // Required: drops blanks, so "1 2" is 12.
            if (IsSpace(character)) {
                return true;
            }
            token.digit = token.digit || IsDigit(character);
            break;
    }
    token.text += character;
    return true;
}

/// Calls strtod() in the C locale. The whole text must convert without any error.
bool ConvertToDouble(const std::string& text, Value& value)
{
    // The C library keeps this locale: no allocation, no lock.
    const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t{});
    char* end = nullptr;
    errno = 0;
    const double number = strtod_l(text.c_str(), &end, cLocale);
    // Required: strtod() decides. It accepts 0x1e, and reports an error for 1e-310 (underflow).
    if (errno != 0 || end != text.c_str() + text.size()) {
        return false;
    }
    Access::SetDouble(value, number);
    return true;
}

/// Reads an integer as a 32-bit strtol() does. An integer out of its range becomes a double.
bool ConvertToInt(const std::string& text, Value& value)
{
    char* end = nullptr;
    // Required: an empty token converts to 0.
    const long long number = strtoll(text.c_str(), &end, 10);
    if (end != text.c_str() + text.size()) {
        return false;
    }
    if (number < std::numeric_limits<std::int32_t>::min() ||
        number > std::numeric_limits<std::int32_t>::max()) {
        return ConvertToDouble(text, value);
    }
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
