/// @file
/// What the application has set for the file log.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Tolvex/Log/LogDurability.h"

namespace Tolvex::Ilog {

/// The size limit of a file. One value, so that a line never meets one half of a setting.
struct SizeLimit
{
    static constexpr std::uint64_t mostBytes = (std::uint64_t{1} << 48) - 1;
    static constexpr std::uint64_t mostKept = 65535;

    std::uint64_t bytes : 48;  ///< 0: no limit
    std::uint64_t kept : 16;   ///< full files that are kept
};

/// Shared by a policy and its files. Each member has a meaning of its own, whatever the others are.
/// @par Thread safety
/// Thread-safe.
struct FileSettings
{
    std::atomic<LogDurability> durability = LogDurability::None;
    std::atomic<std::chrono::milliseconds> interval = std::chrono::milliseconds(0);
    std::atomic<bool> ignitionOff = false;  ///< sync each line now, unless durability is None

    std::atomic<SizeLimit> sizeLimit = SizeLimit{0, 0};
};

}  // namespace Tolvex::Ilog
