/// @file
/// What the application has set for the file log.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "Tolvex/Log/LogDurability.h"

namespace Tolvex::Ilog {

/// Shared by a policy and its files. Each member has a meaning of its own, whatever the others are.
/// @par Thread safety
/// Thread-safe.
struct FileSettings
{
    std::atomic<LogDurability> durability = LogDurability::None;
    std::atomic<std::chrono::milliseconds> interval = std::chrono::milliseconds(0);
    std::atomic<bool> ignitionOff = false;  ///< sync each line now, unless durability is None

    std::atomic<std::uint64_t> sizeLimit = 0;  ///< in bytes; 0: none
    std::atomic<unsigned> keptFiles = 0;       ///< full files that are kept
};

}  // namespace Tolvex::Ilog
