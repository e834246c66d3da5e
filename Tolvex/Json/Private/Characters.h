/// @file
/// The classes of bytes that readers and writers of JSON text tell apart.
#pragma once

#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstring>
#include <limits>
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

/// As many bytes as fit a register, the first byte lowest.
using Word = std::size_t;

inline Word LoadWord(const char* at)
{
    static_assert(std::endian::native == std::endian::little);
    Word word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

/// @return a word that consists of this byte.
constexpr Word Repeat(unsigned char byte)
{
    return std::numeric_limits<Word>::max() / UCHAR_MAX * byte;
}

/// @return whether as many bytes as fit a word are left.
inline bool HoldsWord(const char* at, const char* end)
{
    return static_cast<std::size_t>(end - at) >= sizeof(Word);
}

/// @return the first byte that is not white space, or the end.
inline const char* SkipSpaces(const char* at, const char* end)
{
    if (at == end || !IsSpace(*at)) {
        return at;  // nearly always
    }
    while (HoldsWord(at, end) && LoadWord(at) == Repeat(' ')) {
        at += sizeof(Word);
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
    // Sets the high bit of the lowest byte that is 0, and of none below it.
    const auto markZero = [](Word word) { return (word - Repeat(1)) & ~word & Repeat(0x80); };
    for (; HoldsWord(at, end); at += sizeof(Word)) {
        const Word word = LoadWord(at);
        const Word marks = markZero(word ^ Repeat('"')) | markZero(word ^ Repeat('\\'));
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
