/// @file
/// Counts what a test program allocates with operator new, and makes large allocations fail.
///
/// Replaces the allocation functions of the whole program, the shared library included: include it
/// in one file of a program only.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace Tolvex::Support {

inline std::atomic<std::size_t> allocationCount{0};      ///< calls of operator new so far
inline thread_local std::size_t ownAllocationCount = 0;  ///< calls of the calling thread
inline std::atomic<std::size_t> releaseCount{0};         ///< releases of allocated memory so far
inline std::atomic<std::size_t> allocatedBytes{0};       ///< requested so far
inline std::atomic<std::size_t> largestAllocation{SIZE_MAX};  ///< bytes; larger requests fail
inline std::atomic<std::size_t> failingAllocation{SIZE_MAX};  ///< requests fail from this call on
inline std::atomic<std::size_t> failingCount{SIZE_MAX};       ///< so many of them

/// While it exists, allocations of more than a number of bytes fail.
class AllocationLimit
{
public:
    explicit AllocationLimit(std::size_t bytes) { largestAllocation = bytes; }
    ~AllocationLimit() { largestAllocation = SIZE_MAX; }
    AllocationLimit(const AllocationLimit&) = delete;
    AllocationLimit& operator=(const AllocationLimit&) = delete;
};

/// While it exists, allocations after a number of successful ones fail: all, or so many.
class AllocationBudget
{
public:
    explicit AllocationBudget(std::size_t count, std::size_t failures = SIZE_MAX)
    {
        failingCount = failures;
        failingAllocation = allocationCount + count;
    }
    ~AllocationBudget() { failingAllocation = SIZE_MAX; }
    AllocationBudget(const AllocationBudget&) = delete;
    AllocationBudget& operator=(const AllocationBudget&) = delete;
};

inline void* CountedAllocation(std::size_t bytes)
{
    ++ownAllocationCount;
    const std::size_t number = allocationCount++;
    const bool refused = number >= failingAllocation && number - failingAllocation < failingCount;
    const bool fails = refused || bytes > largestAllocation;
    allocatedBytes += bytes;
    void* memory = fails ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    if (memory == nullptr) {
        ++releaseCount;
        throw std::bad_alloc();
    }
    return memory;
}

inline void CountedRelease(void* memory)
{
    releaseCount += memory == nullptr ? 0U : 1U;
    std::free(memory);
}

}  // namespace Tolvex::Support

// NOLINTBEGIN(misc-definitions-in-headers): a replacement may not be inline.
[[gnu::noinline]] void* operator new(std::size_t bytes)
{
    return Tolvex::Support::CountedAllocation(bytes);
}

[[gnu::noinline]] void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    try {
        return Tolvex::Support::CountedAllocation(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

// Those of arrays call the ones above, except under a sanitizer.
[[gnu::noinline]] void* operator new[](std::size_t bytes)
{
    return Tolvex::Support::CountedAllocation(bytes);
}

[[gnu::noinline]] void operator delete[](void* memory) noexcept
{
    Tolvex::Support::CountedRelease(memory);
}

[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept
{
    Tolvex::Support::CountedRelease(memory);
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    Tolvex::Support::CountedRelease(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept
{
    Tolvex::Support::CountedRelease(memory);
}
// NOLINTEND(misc-definitions-in-headers)
