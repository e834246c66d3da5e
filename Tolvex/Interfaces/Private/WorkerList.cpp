#include "Tolvex/Interfaces/Private/WorkerList.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "Tolvex/Base/Private/ForkMutex.h"

namespace Tolvex::Interfaces {
namespace {

// Guards the list; taken before the mutex of a worker's threads.
constinit Base::ForkMutex listMutex;

// Made for the first worker, so that loading the library costs nothing. Never destroyed: workers
// may still start and end while the process exits.
std::vector<const IThread*>* list = nullptr;

/// The threads of the workers on the list do not exist in the child.
void EmptyInChild()
{
    if (list != nullptr) {
        list->clear();
    }
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

void VisitWorkers(const std::function<void(const IThread&)>& visit)
{
    const std::unique_lock<std::mutex> lock = LockList();
    if (list != nullptr) {
        for (const IThread* worker : *list) {
            visit(*worker);
        }
    }
}

}  // namespace Tolvex::Interfaces
