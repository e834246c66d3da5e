#include "Tolvex/Interfaces/Private/WorkerRecord.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "Tolvex/Base/Private/TimeZone.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Interfaces {
namespace {

using Ilog::LogLine;
using Ilog::LogType;
using std::memory_order_relaxed;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr std::uint64_t manyPassesInATick = 1000;
constexpr std::uint64_t passesPerReading = 8;  // with many passes in a tick; a power of two

/// @param read  clock_gettime() or clock_getres().
nanoseconds ReadTime(int (*read)(clockid_t, timespec*), clockid_t clock)
{
    timespec time{};
    read(clock, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

}  // namespace

std::vector<WorkerRecord*>& WorkerRecord::Listed()
{
    // Never destroyed: at the end of the process there may still be workers.
    static auto& listed = *new std::vector<WorkerRecord*>;
    return listed;
}

void WorkerRecord::List()
{
    const std::unique_lock<std::mutex> lock = Base::LockAgainstForks();
    if (std::find(Listed().begin(), Listed().end(), this) == Listed().end()) {
        Listed().push_back(this);
    }
}

void WorkerRecord::Unlist()
{
    const std::unique_lock<std::mutex> lock = Base::LockAgainstForks();
    std::erase(Listed(), this);
}

WorkerRefusals WorkerRecord::Apply(pthread_t thread)
{
    newest = thread;
    WorkerRefusals refusals;
    if (scheduling.has_value()) {
        refusals.priority =
            pthread_setschedparam(thread, scheduling->policy, &scheduling->parameter);
    }
    if (cpus.has_value()) {
        refusals.affinity = pthread_setaffinity_np(thread, sizeof(cpu_set_t), &*cpus);
    }
    return refusals;
}

void WorkerRecord::BeginRun(const IThread& worker, const std::string& name)
{
    lastRun = {.worker = &worker, .name = name};
    newest = 0;
    clock = nullptr;
}

void WorkerRefusals::Log(const std::string& name) const
{
    for (const auto& [wish, error] :
         {std::pair("priority", priority), std::pair("CPU affinity", affinity)}) {
        if (error != 0) {
            char buffer[128];
            LogLine(LogType::Warning, LogModule::Ithread)
                << "Thread (" << (name.empty() ? "name not defined" : name) << ") runs without its "
                << wish << ": " << strerror_r(error, buffer, sizeof buffer);
        }
    }
}

PassClock::PassClock(WorkerRecord& shownIn, std::mutex& ofRecord)
    : record(shownIn), mutex(ofRecord), tickLength(ReadTime(clock_getres, CLOCK_MONOTONIC_COARSE))
{
    BeginPass();
    const std::lock_guard<std::mutex> lock(mutex);
    if (pthread_equal(record.newest, pthread_self()) != 0) {
        record.clock = this;
    }
}

PassClock::~PassClock()
{
    Rest();
    const std::lock_guard<std::mutex> lock(mutex);
    if (record.clock == this) {
        Read(record.lastRun);
        record.clock = nullptr;
    }
}

void PassClock::BeginPass()
{
    lastTick = ReadTime(clock_gettime, CLOCK_MONOTONIC_COARSE);
    passesAtStamp.store(passes.load(memory_order_relaxed), memory_order_relaxed);
    stamp.store(ReadTime(clock_gettime, CLOCK_MONOTONIC), memory_order_relaxed);
}

void PassClock::ReadClock(std::uint64_t ended)
{
    if (ReadTime(clock_gettime, CLOCK_MONOTONIC_COARSE) == lastTick) {
        lastPass.store(milliseconds(0), memory_order_relaxed);
        return;
    }
    const nanoseconds begin = stamp.load(memory_order_relaxed);
    const std::uint64_t passesSince = ended - passesAtStamp.load(memory_order_relaxed);
    BeginPass();
    const nanoseconds sinceBegin = stamp.load(memory_order_relaxed) - begin;

    const milliseconds length = LengthOf(sinceBegin, passesSince <= skipMask + 1);
    lastPass.store(length, memory_order_relaxed);
    longestPass.store(std::max(length, longestPass.load(memory_order_relaxed)),
                      memory_order_relaxed);

    const bool spinning = passesSince > manyPassesInATick && sinceBegin < 2 * tickLength;
    skipMask = spinning ? passesPerReading - 1 : 0;
}

void PassClock::Read(WorkerHealth& health) const
{
    // The clock is read first: if this thread is held up here, the pass does not seem longer.
    const nanoseconds now = ReadTime(clock_gettime, CLOCK_MONOTONIC);
    const nanoseconds begin = stamp.load(memory_order_relaxed);
    health.passes = passes.load(memory_order_relaxed);
    health.lastPass = lastPass.load(memory_order_relaxed);
    health.longestPass = longestPass.load(memory_order_relaxed);

    const bool alone = health.passes == passesAtStamp.load(memory_order_relaxed);
    health.runningPass = begin == noPass ? milliseconds(0) : LengthOf(now - begin, alone);
}

milliseconds PassClock::LengthOf(nanoseconds sinceStamp, bool alone) const
{
    const nanoseconds length = alone ? sinceStamp : sinceStamp - tickLength;
    return std::max(std::chrono::duration_cast<milliseconds>(length), milliseconds(0));
}

}  // namespace Tolvex::Interfaces
