/// @file
/// Letting the address sanitizer live with cancelled threads.
#pragma once

#include <cstddef>
#include <pthread.h>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#endif

namespace Tolvex::Support {

/// First local object of a thread's function that may be cancelled while deeper functions hold
/// local objects: the address sanitizer does not notice that a cancellation leaves those functions,
/// and takes the thread's last steps on their stack for errors. Without it, does nothing.
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
