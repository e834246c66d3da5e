/// @file
/// Reading and writing plain members that several threads share without a lock.
/// @code
/// bool running = true;  // shared
/// std::thread worker([&running] {
///     while (Util::LoadShared(running)) {
///         std::this_thread::yield();
///     }
/// });
/// Util::StoreShared(running, false);
/// worker.join();
/// @endcode
#pragma once

#include <atomic>
#include <type_traits>

namespace Tolvex::Util {

/// Reads a plain member that another thread may be writing at this moment.
///
/// Sees everything that the writing thread did before its StoreShared() of the value read.
/// @tparam T      A type that the processor reads in one piece: bool, an integer, a pointer.
/// @param member  Written with StoreShared() only, once other threads know it.
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
/// @param member  Read with LoadShared() only, by other threads.
/// @param value   The new value.
/// @par Thread safety
/// Thread-safe.
template <typename T>
void StoreShared(T& member, std::type_identity_t<T> value)
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref<T>(member).store(value, std::memory_order_release);
}

}  // namespace Tolvex::Util
