/// @file
/// How much of its stack a thread has used.
#pragma once

#include <cstddef>
#include <pthread.h>

namespace Tolvex::Support {

/// The stack of the calling thread. Painting it below the caller shows what is used later.
///
/// Call Paint() first on the thread and measure last. Everything above the caller counts as used,
/// including the data that the C library keeps there for the thread.
class ThreadStack
{
public:
    ThreadStack()
    {
        pthread_attr_t attributes;
        void* start = nullptr;
        if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
            pthread_attr_getstack(&attributes, &start, &size);
            pthread_attr_destroy(&attributes);
        }
        lowest = static_cast<volatile unsigned char*>(start);
    }

    /// @return the whole stack in bytes, without its guard.
    std::size_t Size() const { return size; }

    /// Fills the stack below the caller.
    __attribute__((noinline, no_sanitize("address", "undefined", "thread"))) void Paint() const
    {
        const volatile unsigned char* const here = Here();
        for (volatile unsigned char* byte = lowest; byte < here - margin; ++byte) {
            *byte = paint;
        }
    }

    /// @return bytes from the top of the stack down to the lowest one written since Paint().
    __attribute__((noinline, no_sanitize("address", "undefined", "thread"))) std::size_t Used()
        const
    {
        std::size_t untouched = 0;
        while (untouched < size && lowest[untouched] == paint) {
            ++untouched;
        }
        return size - untouched;
    }

private:
    static constexpr unsigned char paint = 0xA7;
    static constexpr std::ptrdiff_t margin = 256;  ///< more than Paint()'s own frame and red zone

    __attribute__((always_inline)) static const volatile unsigned char* Here()
    {
        return static_cast<const volatile unsigned char*>(__builtin_frame_address(0));
    }

    volatile unsigned char* lowest = nullptr;
    std::size_t size = 0;
};

}  // namespace Tolvex::Support
