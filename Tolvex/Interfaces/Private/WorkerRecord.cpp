#include "Tolvex/Interfaces/Private/WorkerRecord.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <mutex>

#include "Tolvex/Base/Private/ForkMutex.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Interfaces {
namespace {

using Ilog::LogLine;
using Ilog::LogType;
using std::memory_order_relaxed;

constexpr std::uint64_t manyPassesInATick = 1000;
constexpr std::uint64_t passesPerGroup = 8;
constexpr std::int64_t nanosecondsPerSecond = 1000000000;

constinit Base::ForkMutex
    listMutex;  // guards the list; taken before the mutex of a worker's threads
WorkerRecord* newestListed = nullptr;

std::int64_t InNanoseconds(const timespec& time)
{
    return std::int64_t{time.tv_sec} * nanosecondsPerSecond + time.tv_nsec;
}

std::int64_t Now(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return InNanoseconds(now);
}

std::int64_t TickLength()
{
    timespec resolution{};
    clock_getres(CLOCK_MONOTONIC_COARSE, &resolution);
    return InNanoseconds(resolution);
}

}  // namespace

void WorkerRecord::LockBeforeFork()
{
    listMutex.LockBeforeFork();
}

void WorkerRecord::UnlockInParent()
{
    listMutex.UnlockAfterFork();
}

/// The threads of the workers on the list do not exist in the child.
void WorkerRecord::EmptyInChild()
{
    while (newestListed != nullptr) {
        newestListed->object = nullptr;
        newestListed = newestListed->next;
    }
    listMutex.UnlockAfterFork();
}

/// Best effort: without memory a child that is forked in the wrong moment finds the lock taken.
void WorkerRecord::PrepareForForks()
{
    pthread_atfork(LockBeforeFork, UnlockInParent, EmptyInChild);
}

void WorkerRecord::List(const IThread& worker)
{
    // If a fork interrupts the registration, the child registers again.
    static pthread_once_t prepared = PTHREAD_ONCE_INIT;
    pthread_once(&prepared, PrepareForForks);

    const std::lock_guard<std::mutex> lock(listMutex);
    if (object != nullptr) {
        return;
    }
    object = &worker;
    previous = nullptr;
    next = newestListed;
    if (next != nullptr) {
        next->previous = this;
    }
    newestListed = this;
}

void WorkerRecord::Unlist()
{
    const std::lock_guard<std::mutex> lock(listMutex);
    if (object == nullptr) {
        return;
    }
    object = nullptr;
    (previous != nullptr ? previous->next : newestListed) = next;
    if (next != nullptr) {
        next->previous = previous;
    }
}

void WorkerRecord::VisitAll(const std::function<void(const IThread&, const WorkerRecord&)>& visit)
{
    const std::lock_guard<std::mutex> lock(listMutex);
    for (const WorkerRecord* record = newestListed; record != nullptr; record = record->next) {
        visit(*record->object, *record);
    }
}

WorkerRecord::Passes WorkerRecord::ReadPasses() const
{
    return {passes.load(memory_order_relaxed), lastPass.load(memory_order_relaxed),
            longestPass.load(memory_order_relaxed), RunningPass()};
}

std::int64_t WorkerRecord::RunningPass() const
{
    // The clock is read first: if this thread is held up here, the pass does not seem longer.
    const std::int64_t now = Now(CLOCK_MONOTONIC);
    const std::int64_t begin = stamp.load(memory_order_relaxed);
    if (begin == 0) {
        return 0;
    }
    // Passes that have ended since took less than a tick altogether.
    const bool exact =
        passes.load(memory_order_relaxed) == passesAtStamp.load(memory_order_relaxed);
    return std::max<std::int64_t>(now - begin - (exact ? 0 : TickLength()), 0);
}

WorkerRefusals WorkerRecord::Apply(pthread_t thread) const
{
    WorkerRefusals refusals;
    if (scheduling.has_value()) {
        sched_param parameter{};
        parameter.sched_priority = scheduling->priority;
        refusals.priority = pthread_setschedparam(thread, scheduling->policy, &parameter);
    }
    if (cpus.has_value()) {
        refusals.affinity = pthread_setaffinity_np(thread, sizeof(cpu_set_t), &*cpus);
    }
    return refusals;
}

void WorkerRecord::BeginRun(const std::string& name)
{
    nameAtStart = name;
    writer.store(nullptr, memory_order_relaxed);
    stamp.store(0, memory_order_relaxed);
    passes.store(0, memory_order_relaxed);
    lastPass.store(0, memory_order_relaxed);
    longestPass.store(0, memory_order_relaxed);
}

void WorkerRefusals::Log(const std::string& name) const
{
    const auto warn = [&name](const char* wish, int error) {
        if (error == 0) {
            return;
        }
        char buffer[128];
        LogLine(LogType::Warning, LogModule::Ithread)
            << "Thread (" << (name.empty() ? "name not defined" : name) << ") runs without its "
            << wish << ": " << strerror_r(error, buffer, sizeof buffer);
    };
    warn("priority", priority);
    warn("CPU affinity", affinity);
}

PassClock::PassClock(WorkerRecord& kept) : record(kept), tickLength(TickLength())
{
    record.writer.store(this, memory_order_relaxed);
    lastTick = Now(CLOCK_MONOTONIC_COARSE);
    Stamp(Now(CLOCK_MONOTONIC));
}

void PassClock::BeginRest()
{
    if (IsNewest()) {
        record.stamp.store(0, memory_order_relaxed);
    }
}

void PassClock::EndRest()
{
    lastTick = Now(CLOCK_MONOTONIC_COARSE);
    if (IsNewest()) {
        Stamp(Now(CLOCK_MONOTONIC));
    }
}

void PassClock::Stamp(std::int64_t time)
{
    stamp = time;
    passesAtStamp = passes;
    record.passesAtStamp.store(passes, memory_order_relaxed);
    record.stamp.store(time, memory_order_relaxed);
}

void PassClock::ReadClock()
{
    passesToReading = group;
    const std::int64_t tick = Now(CLOCK_MONOTONIC_COARSE);
    if (!IsNewest() || (tick == lastTick && lastPass == 0)) {
        return;
    }
    if (tick == lastTick) {
        lastPass = 0;
        record.lastPass.store(0, memory_order_relaxed);
        return;
    }

    lastTick = tick;
    const std::int64_t now = Now(CLOCK_MONOTONIC);
    const std::uint64_t passesSince = passes - passesAtStamp;
    // The passes before the last took less than a tick altogether: the tick is left out, so that
    // they do not count as part of the last one.
    const bool lastAlone = passesSince <= group;
    lastPass = std::max<std::int64_t>(now - stamp - (lastAlone ? 0 : tickLength), 0);
    longestPass = std::max(longestPass, lastPass);
    record.lastPass.store(lastPass, memory_order_relaxed);
    record.longestPass.store(longestPass, memory_order_relaxed);

    const bool spinning = passesSince > manyPassesInATick && now - stamp < 2 * tickLength;
    group = spinning ? passesPerGroup : 1;
    passesToReading = group;
    Stamp(now);
}

}  // namespace Tolvex::Interfaces
