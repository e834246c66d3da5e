/// @file
/// The classes of bytes that the reading of JSON text tells apart. Not installed.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace Tolvex::Json {

using ByteSet = std::array<bool, 256>;

constexpr ByteSet MakeByteSet(std::string_view bytes)
{
    ByteSet set{};
    for (const char byte : bytes) {
        set[static_cast<unsigned char>(byte)] = true;
    }
    return set;
}

inline constexpr ByteSet spaces = MakeByteSet(" \t\n\v\f\r");
inline constexpr ByteSet structure = MakeByteSet(" \",[]{}n");
inline constexpr ByteSet elementDelimiters = MakeByteSet(",][{");

inline bool IsIn(const ByteSet& set, char byte)
{
    return set[static_cast<unsigned char>(byte)];
}

/// isspace() of the C locale.
inline bool IsSpace(char byte)
{
    return IsIn(spaces, byte);
}

inline bool IsDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

inline bool IsLetter(char byte)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

/// Reads eight bytes as one number, the first byte lowest.
inline std::uint64_t LoadEight(const char* at)
{
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, at, sizeof bytes);
    return bytes;
}

/// @return the first byte that is not white space, or the end.
inline const char* SkipSpaces(const char* at, const char* end)
{
    constexpr std::uint64_t eightBlanks = 0x2020202020202020;
    if (at == end || !IsSpace(*at)) {
        return at;  // nearly always
    }
    while (end - at >= 8 && LoadEight(at) == eightBlanks) {
        at += 8;
    }
    while (at != end && IsSpace(*at)) {
        ++at;
    }
    return at;
}

/// @return the first byte of the set, or the end.
inline const char* FindFirstIn(const ByteSet& set, const char* at, const char* end)
{
    while (at != end && !IsIn(set, *at)) {
        ++at;
    }
    return at;
}

/// @return the first double quote or backslash, or the end.
inline const char* FindQuoteOrBackslash(const char* at, const char* end)
{
    constexpr std::uint64_t ones = 0x0101010101010101;
    constexpr std::uint64_t highBits = 0x8080808080808080;
    // Sets the high bit of the lowest byte that is 0, and of none below it.
    const auto markZero = [](std::uint64_t bytes) { return (bytes - ones) & ~bytes & highBits; };
    for (; end - at >= 8; at += 8) {
        const std::uint64_t bytes = LoadEight(at);
        const std::uint64_t marks = markZero(bytes ^ ones * '"') | markZero(bytes ^ ones * '\\');
        if (marks != 0) {
            return at + std::countr_zero(marks) / 8;
        }
    }
    while (at != end && *at != '"' && *at != '\\') {
        ++at;
    }
    return at;
}

inline std::string_view Trim(std::string_view text)
{
    while (!text.empty() && IsSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

}  // namespace Tolvex::Json
