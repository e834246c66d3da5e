/// @file
/// Keeps the address sanitizer from reporting errors in cancelled threads.
#pragma once

#include <cstddef>
#include <pthread.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace Tolvex::Support {

/// Make it the first local object of a thread function that may be cancelled in a deeper function.
///
/// The address sanitizer does not notice that a cancellation leaves frames. It then reports later
/// uses of that memory as errors. The destructor marks the thread's whole stack as usable. Does
/// nothing in other builds.
///
/// CTest also tells the sanitizer to keep locals on a stack of its own (tests/CMakeLists.txt). That
/// covers the library's own threads, and what runs before this destructor.
class CancellableStack
{
public:
    CancellableStack() = default;
    CancellableStack(const CancellableStack&) = delete;
    CancellableStack& operator=(const CancellableStack&) = delete;

    ~CancellableStack()
    {
#ifdef __SANITIZE_ADDRESS__
        pthread_attr_t attributes;
        void* lowest = nullptr;
        std::size_t size = 0;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstack(&attributes, &lowest, &size);
        pthread_attr_destroy(&attributes);
        __asan_unpoison_memory_region(lowest, size);
#endif
    }
};

}  // namespace Tolvex::Support
