/// @file
/// What a logger shares with its writers and with the events of the process.
#pragma once

#include <atomic>
#include <cstdint>
#include <locale>
#include <mutex>
#include <sstream>

#include "Tolvex/Base/Private/CallingThread.h"
#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Log/PolicyCalls.h"
#include "Tolvex/Log/Private/LineHeader.h"
#include "Tolvex/Log/Private/LineLock.h"
#include "Tolvex/Log/Private/WriterLife.h"

namespace Tolvex::Ilog {

/// The state of one logger. Outlives the logger when a writer hangs in its policy. The references
/// and the policy belong to the logger and dangle once it is destroyed.
struct LoggerState
{
    LoggerState(std::stringstream& line, Interfaces::ISemaphore& semaphore,
                const PolicyCalls& policyCalls, void* loggerPolicy, bool& enabled, bool& stopped)
        : writers(lock, enabled, stopped),
          buffer(line),
          lineReady(semaphore),
          calls(policyCalls),
          policy(loggerPolicy)
    {
    }

    LineLock lock;
    WriterLife writers;
    LineHeader header;  ///< used by the thread that has the line

    std::stringstream& buffer;          ///< the line; used by the thread that has the line
    Interfaces::ISemaphore& lineReady;  ///< one token per complete line, and one per Close()
    const PolicyCalls& calls;
    void* policy;
    const std::locale
        locale;  ///< the global one when the logger was made; lines are formatted in it

    std::mutex control;                           ///< held during one Enable() or Close()
    std::atomic<Base::ThreadId> controlling = 0;  ///< the thread that holds control
    std::atomic<std::uint32_t> written = 0;       ///< lines that the writers have finished
    bool bufferStale = false;                     ///< a fork left the buffer in an unknown state
    LoggerState* next = nullptr;                  ///< in the registry; under its lock
};

}  // namespace Tolvex::Ilog
