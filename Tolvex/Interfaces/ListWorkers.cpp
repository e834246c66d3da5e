#include <algorithm>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Tolvex/Base/Private/TimeZone.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/Private/WorkerRecord.h"
#include "Tolvex/Interfaces/Private/WorkerThreads.h"
#include "Tolvex/Interfaces/WorkerHealth.h"

namespace Tolvex::Interfaces {
namespace {

using Base::LoadShared;

/// @return bytes from the top of a living thread's stack to its lowest page that is in memory.
std::size_t StackUsed(pthread_t thread)
{
    pthread_attr_t attributes;
    void* lowest = nullptr;
    std::size_t size = 0;
    if (pthread_getattr_np(thread, &attributes) != 0) {
        return 0;
    }
    pthread_attr_getstack(&attributes, &lowest, &size);
    pthread_attr_destroy(&attributes);

    // The C library gives the pages below back to the system when a thread ends: what is in memory
    // was written by this thread, or lies close below what the last thread had in use at its end.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> inMemory((size + page - 1) / page);
    mincore(lowest, size, inMemory.data());
    const auto first = std::find_if(inMemory.begin(), inMemory.end(),
                                    [](unsigned char state) { return (state & 1U) != 0; });
    return static_cast<std::size_t>(inMemory.end() - first) * page;
}

}  // namespace

WorkerState WorkerRecord::StateOf(const IThread& worker)
{
    const bool hasHandle = LoadShared(worker.threadHandle) != 0;
    if (LoadShared(worker.finished)) {
        return hasHandle ? WorkerState::Aborted : WorkerState::Finished;
    }
    if (!LoadShared(worker.running)) {
        return WorkerState::Stopping;
    }
    if (!hasHandle) {
        return WorkerState::Failed;
    }
    return LoadShared(worker.paused) ? WorkerState::Paused : WorkerState::Running;
}

void WorkerRecord::ReadTo(std::vector<WorkerHealth>& workers) const
{
    if (!threads.AreOfThisProcess()) {
        return;
    }
    // While the mutex is held no thread of the worker is created, and none ends.
    const std::lock_guard<std::mutex> lock(threads.mutex);
    if (lastRun.worker == nullptr) {
        return;  // on the way to its first start
    }
    WorkerHealth& health = workers.emplace_back(lastRun);
    health.state = StateOf(*lastRun.worker);
    if (clock != nullptr) {
        clock->Read(health);
    }
    if (const std::optional<pthread_t> thread = threads.Newest()) {
        health.stackUsed = StackUsed(*thread);
    }
}

std::vector<WorkerHealth> ListWorkers()
{
    std::vector<WorkerHealth> workers;
    const std::unique_lock<std::mutex> lock = Base::LockAgainstForks();
    for (const WorkerRecord* record : WorkerRecord::Listed()) {
        record->ReadTo(workers);
    }
    return workers;
}

}  // namespace Tolvex::Interfaces
