/// @file
/// Finds the place of a new member in a JSON object. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Characters.h"

namespace Tolvex::Json {

/// Keeps the members of the open objects in the order of their keys, with the first eight bytes of
/// each key. So the place of a new member is found by comparing numbers; the map would compare
/// strings. Only the first members of a long object are kept. See docs/json-speed.md.
class MemberOrder
{
public:
    using Members = std::map<std::string, Value>;

    std::size_t Size() const { return entries.size(); }
    void ShrinkTo(std::size_t size) { entries.resize(size); }

    /// @param first    Where the members of the object begin.
    /// @param textEnd  The end of the text in which the key stands.
    /// @return a hint for the map: the member before which the key belongs, or which has it.
    Members::iterator FindNext(Members& members, std::size_t first, std::string_view key,
                               const char* textEnd)
    {
        prefix = MakePrefix(key, textEnd);
        place = entries.size();
        if (members.size() != place - first) {
            place = SIZE_MAX;
            return members.end();  // an object too long: the map's own search
        }
        while (place > first && entries[place - 1].IsNotBefore(prefix, key)) {
            --place;
        }
        return place == entries.size() ? members.end() : entries[place].member;
    }

    /// Adds a member at the place that was found last.
    void Add(Members::iterator member, std::size_t first)
    {
        if (place != SIZE_MAX && entries.size() - first < keptMembers) {
            entries.insert(entries.begin() + static_cast<std::ptrdiff_t>(place), {prefix, member});
        }
    }

private:
    static constexpr std::size_t keptMembers = 32;

    struct Entry
    {
        bool IsNotBefore(std::uint64_t otherPrefix, std::string_view key) const
        {
            return prefix != otherPrefix ? prefix > otherPrefix : member->first >= key;
        }

        std::uint64_t prefix;
        Members::iterator member;
    };

    /// Makes a number of the first bytes. Numbers compare as the keys do, as far as the bytes go.
    static std::uint64_t MakePrefix(std::string_view key, const char* textEnd)
    {
        std::uint64_t bytes = 0;
        if (textEnd - key.data() >= 8) {
            bytes = LoadEight(key.data());
        } else {
            key.copy(reinterpret_cast<char*>(&bytes), sizeof bytes);
        }
        const std::uint64_t prefix = __builtin_bswap64(bytes);
        return key.size() >= 8 ? prefix : prefix & ~(UINT64_MAX >> 8 * key.size());
    }

    std::vector<Entry> entries;
    std::uint64_t prefix = 0;  ///< of the key searched for last
    std::size_t place = 0;     ///< where it belongs; SIZE_MAX: unknown
};

}  // namespace Tolvex::Json
