/// @file
/// The classes of bytes that the reading of JSON text tells apart. Not installed.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Tolvex::Json {

constexpr std::array<bool, 256> MakeByteSet(std::string_view bytes)
{
    std::array<bool, 256> set{};
    for (const char byte : bytes) {
        set[static_cast<unsigned char>(byte)] = true;
    }
    return set;
}

inline constexpr std::array<bool, 256> spaces = MakeByteSet(" \t\n\v\f\r");
inline constexpr std::array<bool, 256> elementDelimiters = MakeByteSet(",][{");
inline constexpr std::array<bool, 256> plainStringStops = MakeByteSet(",][{\"\\");

inline bool IsIn(const std::array<bool, 256>& set, char byte)
{
    return set[static_cast<unsigned char>(byte)];
}

/// isspace() of the C locale, whatever the process's.
inline bool IsSpace(char byte)
{
    return IsIn(spaces, byte);
}

inline bool IsDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

#ifdef __SSE2__

/// Looks at sixteen bytes at once while so many are left before the end.
/// @param findStops  Gives a mask whose lowest sixteen bits say which bytes to stop at.
/// @return the first byte to stop at, or one close before the end.
template <typename FindStops>
const char* SkipBySixteen(const char* at, const char* end, FindStops findStops)
{
    for (; end - at >= static_cast<std::ptrdiff_t>(sizeof(__m128i)); at += sizeof(__m128i)) {
        __m128i bytes;
        std::memcpy(&bytes, at, sizeof bytes);
        const auto stops = static_cast<unsigned int>(findStops(bytes));
        if (stops != 0) {
            return at + std::countr_zero(stops);
        }
    }
    return at;
}

#endif

/// @return the first byte that is no white space, or the end.
inline const char* SkipSpaces(const char* at, const char* end)
{
    if (at == end || !IsSpace(*at)) {
        return at;
    }
#ifdef __SSE2__
    at = SkipBySixteen(at, end, [](__m128i bytes) {
        const __m128i blanks = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(' '));
        const __m128i others = _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('\t' - 1)),
                                             _mm_cmplt_epi8(bytes, _mm_set1_epi8('\r' + 1)));
        return _mm_movemask_epi8(_mm_or_si128(blanks, others)) ^ 0xFFFF;
    });
#endif
    while (at != end && IsSpace(*at)) {
        ++at;
    }
    return at;
}

/// @return the first double quote or backslash, or the end.
inline const char* FindQuoteOrBackslash(const char* at, const char* end)
{
#ifdef __SSE2__
    at = SkipBySixteen(at, end, [](__m128i bytes) {
        return _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                              _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'))));
    });
#endif
    while (at != end && *at != '"' && *at != '\\') {
        ++at;
    }
    return at;
}

/// @return the first of plainStringStops, of which there is one before the end.
inline const char* FindPlainStringStop(const char* at, [[maybe_unused]] const char* end)
{
#ifdef __SSE2__
    at = SkipBySixteen(at, end, [](__m128i bytes) {
        // '[' and '{' differ in one bit.
        const __m128i folded = _mm_or_si128(bytes, _mm_set1_epi8('[' ^ '{'));
        const __m128i opening = _mm_cmpeq_epi8(folded, _mm_set1_epi8('{'));
        const __m128i ending = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(']')),
                                            _mm_cmpeq_epi8(bytes, _mm_set1_epi8(',')));
        const __m128i special = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                             _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')));
        return _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(opening, ending), special));
    });
#endif
    while (!IsIn(plainStringStops, *at)) {
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
