/// @file
/// Reading and writing plain members that several threads share without a lock.
#pragma once

#include <atomic>
#include <type_traits>

namespace Tolvex::Util {

/// Reads a plain member that another thread may be writing at this moment.
///
/// Sees everything that the writing thread did before its StoreShared() of the value read.
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
/// @par Thread safety
/// Thread-safe.
template <typename T>
void StoreShared(T& member, std::type_identity_t<T> value)
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref<T>(member).store(value, std::memory_order_release);
}

}  // namespace Tolvex::Util
