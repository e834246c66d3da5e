#pragma once

#include <map>
#include <mutex>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// The lock of all string tables of the process. It may be taken again by the thread that has it.
/// A forked child finds it free. Held for one look-up, one registration or one filling of a table.
/// @return the one lock of the process; lives as long as the process.
TOLVEX_EXPORT std::recursive_mutex& EnumStringMutex();

/// The mechanics of EnumString: a table from text to enumerator, searched for the text of a value.
///
/// The table is filled on first use and is never destroyed, so that texts stay good for threads
/// that still run while the process exits. It exists once in a process for LogModule. A table of an
/// application's own that several shared objects use needs an `extern template class
/// EnumStringBase<EnumString<E>, E>;` in its header and the instantiation, exported, in one of
/// them.
/// @tparam Derived  The class whose RegisterEnumerators() fills the table.
/// @tparam Enum     The enumeration.
/// @par Thread safety
/// Thread-safe, the first use included.
template <typename Derived, typename Enum>
class TOLVEX_EXPORT EnumStringBase
{
public:
    /// Adds a text for a value.
    ///
    /// @param value  The enumerator.
    /// @param text   Its text.
    /// @note A text that is in the table already keeps its first value.
    /// @note A second text for one value makes From() of that value give the empty string.
    static void RegisterEnumerator(Enum value, const std::string& text);

    /// @param value  Any value of the enumeration.
    /// @return the text of the value; the empty string when it has none, or more than one. The
    /// reference stays good for the life of the process.
    static const std::string& From(Enum value);

    /// @return the table, filled. What other threads register meanwhile changes it: to walk it
    /// while they may, hold EnumStringMutex().
    static std::map<std::string, Enum>& GetMap();

private:
    static std::map<std::string, Enum>& GetMapLocked();
};

/// The string table of one enumeration.
///
/// To give an enumeration its texts, specialise the one member that fills the table:
/// @code
/// enum class Camera
/// {
///     Front,
///     Rear
/// };
///
/// template <>
/// void Tolvex::Util::EnumString<Camera>::RegisterEnumerators()
/// {
///     RegisterEnumerator(Camera::Front, "Front");
///     RegisterEnumerator(Camera::Rear, "Rear");
/// }
///
/// const std::string& text = Tolvex::Util::EnumString<Camera>::From(Camera::Rear);  // "Rear"
/// @endcode
/// @tparam Enum  The enumeration.
/// @par Thread safety
/// Thread-safe, the first use included.
template <typename Enum>
class TOLVEX_EXPORT EnumString : public EnumStringBase<EnumString<Enum>, Enum>
{
public:
    /// Registers every text; called once, by the first use of the table.
    static void RegisterEnumerators();
};

template <typename Derived, typename Enum>
void EnumStringBase<Derived, Enum>::RegisterEnumerator(Enum value, const std::string& text)
{
    const std::lock_guard lock(EnumStringMutex());
    // Required: a text that is there already keeps its first value.
    GetMapLocked().emplace(text, value);
}

template <typename Derived, typename Enum>
const std::string& EnumStringBase<Derived, Enum>::From(Enum value)
{
    const std::lock_guard lock(EnumStringMutex());
    // Never destroyed, and made under the lock, so that no fork falls into its making.
    static const std::string& dummy = *new std::string;

    const std::string* found = nullptr;
    for (const auto& [text, candidate] : GetMapLocked()) {
        if (candidate != value) {
            continue;
        }
        // Required: a value with more than one text is ambiguous and has none.
        if (found != nullptr) {
            return dummy;
        }
        found = &text;
    }
    return found != nullptr ? *found : dummy;
}

template <typename Derived, typename Enum>
std::map<std::string, Enum>& EnumStringBase<Derived, Enum>::GetMap()
{
    const std::lock_guard lock(EnumStringMutex());
    return GetMapLocked();
}

template <typename Derived, typename Enum>
std::map<std::string, Enum>& EnumStringBase<Derived, Enum>::GetMapLocked()
{
    // Never destroyed: threads may still look texts up while the process exits.
    static std::map<std::string, Enum>& assocMap = *new std::map<std::string, Enum>;
    static bool bFirstAccess = true;

    if (bFirstAccess) {
        bFirstAccess = false;  // first: the registrations come back here
        Derived::RegisterEnumerators();
    }
    return assocMap;
}

}  // namespace Tolvex::Util
