#include "Tolvex/Json/Private/StringBody.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "Tolvex/Json/Private/Characters.h"

namespace Tolvex::Json {

namespace {

/// Lengths of the escapes, and of the hexadecimal text in one.
constexpr std::size_t simpleEscape = 2;
constexpr std::size_t unicodeEscape = 6;
constexpr std::size_t hexOffset = 4;
constexpr std::size_t hexLength = 2;

/// Required: makes one byte from the last two of the four digits, without a check that they are
/// digits.
char DecodeHex(std::string_view body, std::size_t escape)
{
    if (escape + hexOffset > body.size()) {
        throw std::out_of_range("json \\u escape is cut off by the end of its string");
    }
    char digits[hexLength + 1] = {};
    body.substr(escape + hexOffset, hexLength).copy(digits, hexLength);
    return static_cast<char>(static_cast<unsigned char>(std::strtoul(digits, nullptr, 16)));
}

/// Decodes the escape at an offset.
/// @return its length in the body.
std::size_t AppendEscape(std::string_view body, std::size_t escape, std::string& text)
{
    const char letter = body[escape + 1];
    if (letter == 'u') {
        text += DecodeHex(body, escape);
        return unicodeEscape;
    }
    const std::size_t index = escapeLetters.find(letter);
    // Required: an unknown escape is dropped, both backslash and letter.
    if (index != std::string_view::npos) {
        text += escapedBytes[index];
    }
    return simpleEscape;
}

/// Appends the decoded body.
void Unescape(std::string_view body, std::string& text)
{
    std::size_t at = 0;
    while (at < body.size()) {
        const std::size_t escape = std::min(body.find('\\', at), body.size());
        text.append(body, at, escape - at);
        if (escape + 1 >= body.size()) {
            // A backslash at the end of the body begins no escape and stays.
            text.append(body, escape, std::string_view::npos);
            return;
        }
        at = escape + AppendEscape(body, escape, text);
    }
}

}  // namespace

const char* FindQuote(const char* begin, const char* end)
{
    const char* at = FindQuoteOrBackslash(begin, end);
    while (at != end && *at != '"') {
        at = end - at < 2 ? end : FindQuoteOrBackslash(at + 2, end);
    }
    return at == end ? nullptr : at;
}

void DecodeString(std::string_view body, std::string& text)
{
    if (body.find('\\') == std::string_view::npos) {
        text = Trim(body);
        return;
    }
    std::string decoded;
    decoded.reserve(body.size());
    Unescape(body, decoded);
    // Required: trims after decoding, so white space that escapes have made is removed, too.
    text = Trim(decoded);
}

}  // namespace Tolvex::Json
