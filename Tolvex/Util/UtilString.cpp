#include "Tolvex/Util/UtilString.h"

#include <array>
#include <charconv>
#include <cstring>
#include <locale>

namespace Tolvex::Util {

namespace {

/// The same as source.find(from, position) for a text that is not empty, but in linear time.
std::size_t Find(const std::string& source, const std::string& from, std::size_t position)
{
    constexpr std::size_t shortText = 32;

    // A match right at the position needs no search.
    const std::size_t left = source.size() - position;
    const char* const start = source.data() + position;
    if (from.size() <= left && *start == from[0] &&
        (from.size() == 1 || std::memcmp(start, from.data(), from.size()) == 0)) {
        return position;
    }
    if (from.size() <= shortText) {
        return source.find(from, position);
    }

    // find() compares the whole text at every byte, which is slow if a long text nearly matches.
    const void* const match = memmem(start, left, from.data(), from.size());
    return match != nullptr
               ? static_cast<std::size_t>(static_cast<const char*>(match) - source.data())
               : std::string::npos;
}

}  // namespace

std::string ToUpper(const std::string& text)
{
    const std::locale global;
    const auto& classes = std::use_facet<std::ctype<char>>(global);

    std::string result = text;
    for (char& character : result) {
        character = classes.toupper(character);
    }
    return result;
}

std::string ToLower(const std::string& text)
{
    const std::locale global;
    const auto& classes = std::use_facet<std::ctype<char>>(global);

    std::string result = text;
    for (char& character : result) {
        character = classes.tolower(character);
    }
    return result;
}

std::string ToHex(int value)
{
    std::array<char, 2 * sizeof value> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(),
                                       static_cast<unsigned int>(value), 16);
    return {digits.data(), written.ptr};
}

std::string Replace(const std::string& source, const std::string& from, const std::string& to)
{
    std::size_t match = from.empty() ? std::string::npos : Find(source, from, 0);
    if (match == std::string::npos) {
        return source;
    }

    // Appended piece by piece: replacing in place would move the rest of the text each time.
    std::string result;
    result.reserve(source.size());
    std::size_t position = 0;
    while (match != std::string::npos) {
        if (match > position) {
            result.append(source, position, match - position);
        }
        result.append(to);
        position = match + from.size();
        match = Find(source, from, position);
    }
    return result.append(source, position);
}

}  // namespace Tolvex::Util
