/// @file
/// Reading and writing plain members that several threads share without a lock.
/// @code
/// bool running = true;  // shared
/// std::thread worker([&running] {
///     while (Base::LoadShared(running)) {
///         std::this_thread::yield();
///     }
/// });
/// Base::StoreShared(running, false);
/// worker.join();
/// @endcode
#pragma once

#include <atomic>
#include <type_traits>

namespace Tolvex::Base {

/// Reads a plain member that another thread may be writing at this moment.
///
/// The caller also sees everything that the writing thread did before its StoreShared().
/// @tparam T      A type that the processor reads in one piece: bool, an integer, a pointer.
/// @param member  Once other threads know it, write it only with the functions below.
/// @return its value.
/// @par Thread safety
/// Thread-safe. Two loads in a row are no snapshot.
template <typename T>
T LoadShared(const T& member)
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    // std::atomic_ref binds to non-const objects only; a load leaves the member as it is.
    return std::atomic_ref<T>(const_cast<T&>(member)).load(std::memory_order_acquire);
}

/// Writes a plain member that other threads read with LoadShared().
/// @tparam T      As for LoadShared().
/// @param member  Other threads read it only with LoadShared().
/// @param value   The new value.
/// @par Thread safety
/// Thread-safe.
template <typename T>
void StoreShared(T& member, std::type_identity_t<T> value)
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref<T>(member).store(value, std::memory_order_release);
}

/// Adds to a plain number that other threads read with LoadShared() or change with this function.
/// @tparam T      An integer, as for LoadShared().
/// @param member  Other threads read it only with LoadShared(), and change it only with this
/// function.
/// @param change  Added; may be negative.
/// @par Thread safety
/// Thread-safe.
template <typename T>
void AddShared(T& member, std::type_identity_t<T> change)
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref<T>(member).fetch_add(change);
}

/// Sets a plain pointer that other threads read with LoadShared(), unless it is already set.
/// @tparam T      The type that it points to.
/// @param member  Null until it is set.
/// @param value   Not null. If the pointer was already set, the caller still owns `value`.
/// @return true if this call has set it.
/// @par Thread safety
/// Thread-safe. Takes no lock, so a child that is forked meanwhile can call it too.
template <typename T>
bool SetSharedOnce(T*& member, std::type_identity_t<T>* value)
{
    static_assert(std::atomic_ref<T*>::is_always_lock_free);
    T* unset = nullptr;
    return std::atomic_ref<T*>(member).compare_exchange_strong(unset, value);
}

}  // namespace Tolvex::Base
