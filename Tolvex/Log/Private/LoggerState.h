/// @file
/// What a logger shares with its writers and with the events of the process.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <locale>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sstream>
#include <string>

#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Log/PolicyCalls.h"
#include "Tolvex/Log/Private/LineHeader.h"
#include "Tolvex/Log/Private/LineLock.h"

namespace Tolvex::Ilog {

/// How long the log waits for a policy that may hang.
constexpr std::chrono::milliseconds longestWait(2100);

/// The state of one logger. Outlives the logger when a writer hangs in its policy. The policy
/// belongs to the logger and does not exist any more then.
struct LoggerState : std::enable_shared_from_this<LoggerState>
{
    LoggerState(const PolicyCalls& policyCalls, void* loggerPolicy, int* count,
                LoggerState* loggerModel)
        : calls(policyCalls),
          policy(loggerPolicy),
          enabledCount(count),
          model(loggerModel),
          locale(loggerModel == nullptr ? std::locale() : loggerModel->locale)
    {
    }

    const PolicyCalls& calls;
    void* const policy;
    int* const enabledCount;              ///< see LoggerCore; may be null
    LoggerState* const model;             ///< see LoggerCore; may be null
    std::stringstream buffer;             ///< the line; used by the thread that has the line
    bool formatChanged = true;            ///< the format of buffer may not be that of a new line
    LineLock lock;                        ///< who may use buffer, header and policy
    Interfaces::ISemaphore lineReady{0};  ///< a token per complete line, per Writer::Stop()
                                          ///< and per writer that has left its loop
    std::string threadName;               ///< of the next writer
    pthread_t writerHandle = 0;           ///< of the writer that was started last
    bool enabled = false;                 ///< shared: lines are accepted
    bool stopped = true;                  ///< shared: there is no current writer
    bool bufferStale = false;             ///< a fork left the buffer in an unknown state
    std::atomic<std::uint32_t> currentWriter = 0;  ///< number of the writer that was started last
    std::atomic<std::uint32_t> toldToEnd = 0;      ///< writers up to this number are to end
    std::mutex writerMutex;    ///< guards changes of the writers' numbers, enabled and stopped
    LineHeader header;         ///< used by the thread that has the line
    const std::locale locale;  ///< the model's, or the global one at that time
    std::atomic<std::uint32_t> written = 0;  ///< lines that the writers have finished

    LineLock control;             ///< held during one Enable() or Close(); no line: a lock only
    LoggerState* next = nullptr;  ///< in the registry; under its lock
};

}  // namespace Tolvex::Ilog
