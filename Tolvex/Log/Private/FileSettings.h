/// @file
/// What the application has set for the file log.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "Tolvex/Log/LogDurability.h"

namespace Tolvex::Ilog {

/// The size limit of a file. In one word, so that no thread reads one half of a new setting.
class SizeLimit
{
public:
    SizeLimit() = default;
    SizeLimit(std::uint64_t bytes, unsigned keptFiles)
        : word(std::min(bytes, mostBytes) * filesRange + std::min(keptFiles, filesRange - 1))
    {
    }

    /// @return 0 for no limit.
    std::uint64_t Bytes() const { return word / filesRange; }
    /// @return how many full files are kept.
    unsigned KeptFiles() const { return word % filesRange; }

private:
    static constexpr unsigned filesRange = 65536;
    static constexpr std::uint64_t mostBytes = UINT64_MAX / filesRange;

    std::uint64_t word = 0;
};

/// Shared by a policy and its files. The members do not depend on each other.
/// @par Thread safety
/// Thread-safe.
struct FileSettings
{
    std::atomic<LogDurability> durability = LogDurability::None;
    std::atomic<std::chrono::milliseconds> interval = std::chrono::milliseconds(0);
    std::atomic<bool> ignitionOff = false;  ///< sync each line now, unless durability is None
    std::atomic<SizeLimit> sizeLimit = SizeLimit();
};

}  // namespace Tolvex::Ilog
