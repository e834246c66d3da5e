#include "Tolvex/Interfaces/WorkerHealth.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Tolvex/Base/Private/ForkMutex.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/Private/WorkerList.h"
#include "Tolvex/Interfaces/Private/WorkerThreads.h"

namespace Tolvex::Interfaces {
namespace {

using Base::LoadShared;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

// Guards the list; taken before the mutex of a worker's threads.
constinit Base::ForkMutex listMutex;

// Made for the first worker, so that loading the library costs nothing. Never destroyed: workers
// may still start and end while the process exits.
std::vector<const IThread*>* list = nullptr;

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

    // When a thread ends, the C library gives the pages below the used part of its stack back to
    // the system. So the pages in memory were written by this thread, or lie close below the part
    // that the last thread on this stack used at its end.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    std::vector<unsigned char> inMemory((size + page - 1) / page);
    mincore(lowest, size, inMemory.data());  // A failure leaves 0: no page counts.
    const auto first = std::find_if(inMemory.begin(), inMemory.end(),
                                    [](unsigned char state) { return (state & 1U) != 0; });
    return size - std::min(size, static_cast<std::size_t>(first - inMemory.begin()) * page);
}

}  // namespace

/// Reads the private state of workers.
class WorkerInspector
{
public:
    static std::mutex& MutexOf(const IThread& worker) { return worker.workerThreads->mutex; }

    static WorkerState StateOf(const IThread& worker)
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

    /// Leaves out a worker that is on the way to its first start, and one of another process.
    static void Append(const IThread& worker, std::vector<WorkerHealth>& workers)
    {
        // While the mutex is held no thread of the worker is created, and none ends.
        WorkerThreads& threads = *worker.workerThreads;
        const std::lock_guard<std::mutex> lock(threads.mutex);
        if (threads.clock == nullptr || !threads.AreOfThisProcess()) {
            return;
        }
        const PassClock& clock = *threads.clock;
        const std::optional<pthread_t> thread = threads.Newest();
        workers.push_back({.worker = &worker,
                           .name = threads.nameAtStart,
                           .state = StateOf(worker),
                           .passes = clock.Passes(),
                           .lastPass = duration_cast<milliseconds>(clock.LastPass()),
                           .longestPass = duration_cast<milliseconds>(clock.LongestPass()),
                           .runningPass = duration_cast<milliseconds>(clock.RunningPass()),
                           .stackUsed = thread.has_value() ? StackUsed(*thread) : 0});
    }
};

namespace {

template <typename Action>
void ForEachWorker(const Action& action)
{
    if (list != nullptr) {
        std::for_each(list->begin(), list->end(), [&](const IThread* worker) { action(*worker); });
    }
}

// A child may start a worker that was started in its parent. So no other thread may hold the mutex
// of the worker's threads while the process forks.

void LockBeforeFork()
{
    if (listMutex.LockBeforeFork()) {
        ForEachWorker([](const IThread& worker) { WorkerInspector::MutexOf(worker).lock(); });
    }
}

template <bool inChild>
void UnlockAfterFork()
{
    if (!listMutex.IsHeldForFork()) {
        return;
    }
    ForEachWorker([](const IThread& worker) { WorkerInspector::MutexOf(worker).unlock(); });
    if (inChild && list != nullptr) {
        // A worker may be on the stack of a thread that does not exist here: it is overwritten.
        list->clear();
    }
    listMutex.UnlockAfterFork();
}

std::unique_lock<std::mutex> LockList()
{
    return Base::LockForkMutex<listMutex, LockBeforeFork, UnlockAfterFork<false>,
                               UnlockAfterFork<true>>();
}

}  // namespace

void ListWorker(const IThread& worker)
{
    const std::unique_lock<std::mutex> lock = LockList();
    if (list == nullptr) {
        list = new std::vector<const IThread*>;
    }
    if (std::find(list->begin(), list->end(), &worker) == list->end()) {
        list->push_back(&worker);
    }
}

void UnlistWorker(const IThread& worker)
{
    const std::unique_lock<std::mutex> lock = LockList();
    if (list != nullptr) {
        std::erase(*list, &worker);
    }
}

std::vector<WorkerHealth> ListWorkers()
{
    std::vector<WorkerHealth> workers;
    const std::unique_lock<std::mutex> lock = LockList();
    ForEachWorker([&](const IThread& worker) { WorkerInspector::Append(worker, workers); });
    return workers;
}

}  // namespace Tolvex::Interfaces
