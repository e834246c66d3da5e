#pragma once

#include <map>
#include <mutex>
#include <new>
#include <pthread.h>
#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Implements EnumString: a table from text to enumerator. From() searches it for the text of a
/// value.
///
/// The table is filled on first use. It is never destroyed, so threads that still run while the
/// process exits may use it. For LogModule the process has one table, which is in the library. If
/// several shared objects use a table of an application, its header needs an `extern template class
/// EnumStringBase<EnumString<E>, E>;`, and one of the objects has to instantiate and export it.
/// @tparam Derived  The class whose RegisterEnumerators() fills the table.
/// @tparam Enum     The enumeration.
/// @par Thread safety
/// Thread-safe, the first use included. A child of fork() can use the table at once.
/// @par Errors
/// std::bad_alloc without memory for a text. If the first use throws it, the next use fills the
/// table.
template <typename Derived, typename Enum>
class TOLVEX_EXPORT EnumStringBase
{
public:
    /// Adds a text for a value.
    ///
    /// @param value  The enumerator.
    /// @param text   Its text.
    /// @note A text that is already in the table keeps its first value.
    /// @note A second text for one value makes From() of that value return the empty string.
    static void RegisterEnumerator(Enum value, const std::string& text);

    /// @param value  Any value of the enumeration.
    /// @return the text of the value; the empty string if it has none, or more than one. The
    /// reference is valid until the process ends.
    static const std::string& From(Enum value);

    /// @return the table, filled. Walk it only while no thread registers a text.
    static std::map<std::string, Enum>& GetMap();

private:
    using Lock = std::lock_guard<std::recursive_mutex>;

    static std::map<std::string, Enum>& GetMapLocked();

    static std::recursive_mutex& Mutex();
    static void PrepareForForks();
    static void LockBeforeFork() { mutex.lock(); }
    static void UnlockInParent() { mutex.unlock(); }
    static void RenewInChild();

    /// Guards the table. Recursive, because the registrations lock it while the table is filled.
    inline static constinit std::recursive_mutex mutex;
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
    /// Registers every text and does nothing else. Called once, by the first use of the table, with
    /// the lock of the table held.
    static void RegisterEnumerators();
};

template <typename Derived, typename Enum>
void EnumStringBase<Derived, Enum>::RegisterEnumerator(Enum value, const std::string& text)
{
    const Lock lock(Mutex());
    // Does not replace the value of a text that is already in the table.
    GetMapLocked().emplace(text, value);
}

template <typename Derived, typename Enum>
const std::string& EnumStringBase<Derived, Enum>::From(Enum value)
{
    const Lock lock(Mutex());
    // Never destroyed. Created under the lock, so no fork can interrupt its initialisation.
    static const std::string& dummy = *new std::string;

    const std::string* found = nullptr;
    for (const auto& [text, candidate] : GetMapLocked()) {
        if (candidate != value) {
            continue;
        }
        if (found != nullptr) {
            return dummy;  // A value with more than one text is ambiguous.
        }
        found = &text;
    }
    return found != nullptr ? *found : dummy;
}

template <typename Derived, typename Enum>
std::map<std::string, Enum>& EnumStringBase<Derived, Enum>::GetMap()
{
    const Lock lock(Mutex());
    return GetMapLocked();
}

template <typename Derived, typename Enum>
std::map<std::string, Enum>& EnumStringBase<Derived, Enum>::GetMapLocked()
{
    // Never destroyed: threads may still look up texts while the process exits.
    static std::map<std::string, Enum>& assocMap = *new std::map<std::string, Enum>;
    static bool bFirstAccess = true;

    if (bFirstAccess) {
        bFirstAccess = false;  // before the registrations, which call this function again
        try {
            Derived::RegisterEnumerators();
        } catch (...) {
            bFirstAccess = true;  // for the next call, which fills the rest
            throw;
        }
    }
    return assocMap;
}

template <typename Derived, typename Enum>
std::recursive_mutex& EnumStringBase<Derived, Enum>::Mutex()
{
    // Not ForkMutex: this header is installed, and ForkMutex is private.
    // The fork handlers are registered once, before the first lock. If a fork interrupts the
    // registration, the child registers again; with the initialisation of a static variable it
    // would hang. A second registration does no harm.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareForForks);
    return mutex;
}

/// Best effort: without memory for the handlers, a child that is forked while another thread holds
/// the lock finds it taken.
template <typename Derived, typename Enum>
void EnumStringBase<Derived, Enum>::PrepareForForks()
{
    pthread_atfork(LockBeforeFork, UnlockInParent, RenewInChild);
}

/// Unlocking is not enough: a recursive mutex notes its owner, which is a thread of the parent.
template <typename Derived, typename Enum>
void EnumStringBase<Derived, Enum>::RenewInChild()
{
    mutex.unlock();  // fails, but tells the thread sanitizer that no thread holds the lock
    new (&mutex) std::recursive_mutex;
}

}  // namespace Tolvex::Util
