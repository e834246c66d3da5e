#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

class IThread;

/// What a worker (IThread) is doing.
enum class WorkerState : std::int32_t
{
    Failed,    ///< started, but the thread could not be created
    Running,   ///< makes passes
    Paused,    ///< makes no passes; the current pass may still run
    Stopping,  ///< was stopped or cancelled, and has not ended yet
    Finished,  ///< has ended
    Aborted    ///< was aborted; the thread may be there still
};

/// How one worker is doing at one moment. The numbers are those of its last Start().
///
/// Lengths of passes are measured with a clock that moves in ticks, mostly of 4 ms (clock_getres()
/// of CLOCK_MONOTONIC_COARSE). A pass that is shorter than a tick can show as 0. The length of a
/// longer pass is up to one tick too short. It is exact if the pass before it also took longer than
/// a tick.
/// @note A worker that makes more than 1000 passes in a tick reads the clock only after every
/// eighth pass. If its passes suddenly become long, up to eight of the first long passes can be
/// timed as one.
struct WorkerHealth
{
    const IThread* worker = nullptr;  ///< tells workers apart; may point to a destroyed object
    std::string name;                 ///< as of the start; empty for none
    WorkerState state = WorkerState::Finished;  ///< at the moment of the call
    std::uint64_t passes = 0;                   ///< that have ended
    std::chrono::milliseconds lastPass{0};      ///< length of the last pass that has ended
    std::chrono::milliseconds longestPass{0};   ///< length of the longest that has ended
    std::chrono::milliseconds runningPass{0};  ///< since the running pass began; 0 outside of Run()

    /// High-water mark of the stack: bytes from its top to the lowest page in memory. A page stays
    /// in memory once it was written, unless the system swaps it out. 0 without a thread. Includes
    /// what the C library keeps there; it may count up to 16 KiB more that an earlier thread on the
    /// same stack has used.
    std::size_t stackUsed = 0;
};

/// Lists the workers of the process that were started and are not destroyed yet, in the order of
/// their first start.
///
/// A watchdog calls it now and then, and names those whose runningPass is too long. See
/// examples/Watchdog.cpp. In a forked child the workers of the parent are not listed.
/// @return a snapshot; two numbers of one worker may be a pass apart.
/// @throws std::bad_alloc without memory for the list.
/// @par Thread safety
/// Thread-safe. Does not wait for any worker; a worker that is started or destroyed at this moment
/// waits for the end of the call.
TOLVEX_EXPORT std::vector<WorkerHealth> ListWorkers();

}  // namespace Tolvex::Interfaces
