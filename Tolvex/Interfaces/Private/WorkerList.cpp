#include "Tolvex/Interfaces/Private/WorkerList.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "Tolvex/Base/Private/ForkMutex.h"

namespace Tolvex::Interfaces {
namespace {

/// Never destroyed: workers may still start and end while the process exits.
union List
{
    constexpr List() : workers() {}
    constexpr ~List() {}
    std::vector<const IThread*> workers;
};

constinit Base::ForkMutex
    listMutex;  // guards the list; taken before the mutex of a worker's threads
constinit List list;

/// The threads of the workers on the list do not exist in the child.
void EmptyInChild()
{
    list.workers.clear();
    listMutex.UnlockAfterFork();
}

std::unique_lock<std::mutex> LockList()
{
    return Base::LockForkMutex<listMutex, EmptyInChild>();
}

}  // namespace

void ListWorker(const IThread& worker)
{
    const std::unique_lock<std::mutex> lock = LockList();
    if (std::find(list.workers.begin(), list.workers.end(), &worker) == list.workers.end()) {
        list.workers.push_back(&worker);
    }
}

void UnlistWorker(const IThread& worker)
{
    const std::unique_lock<std::mutex> lock = LockList();
    std::erase(list.workers, &worker);
}

void VisitWorkers(const std::function<void(const IThread&)>& visit)
{
    const std::unique_lock<std::mutex> lock = LockList();
    for (const IThread* worker : list.workers) {
        visit(*worker);
    }
}

}  // namespace Tolvex::Interfaces
