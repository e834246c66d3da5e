/// @file
/// An identifier of the calling thread.
#pragma once

#include <cstdint>

namespace Tolvex::Base {

/// Identifies a thread while it is alive; 0 is no thread. The bits of threadIdSpareBits are 0.
using ThreadId = std::uintptr_t;

/// Bits of a ThreadId that are always 0, for users that keep flags there.
constexpr ThreadId threadIdSpareBits = 63;

/// Only its address is used. The linker reserves its place in every thread, so finding the address
/// takes no call.
alignas(threadIdSpareBits + 1)
    [[gnu::tls_model("initial-exec")]] inline constinit thread_local char threadMark = 0;

/// @return the identifier of the calling thread.
/// @par Thread safety
/// Thread-safe.
inline ThreadId CallingThread()
{
    return reinterpret_cast<ThreadId>(&threadMark);
}

}  // namespace Tolvex::Base
