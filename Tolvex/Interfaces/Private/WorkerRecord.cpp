#include "Tolvex/Interfaces/Private/WorkerRecord.h"

#include <cstring>
#include <mutex>
#include <utility>

#include "Tolvex/Base/Private/ForkMutex.h"
#include "Tolvex/Log/LogLine.h"

namespace Tolvex::Interfaces {
namespace {

using Ilog::LogLine;
using Ilog::LogType;

constinit Base::ForkMutex
    listMutex;  // guards the list; taken before the mutex of a worker's threads
WorkerRecord* firstListed = nullptr;

/// The threads of the workers on the list do not exist in the child.
void EmptyInChild()
{
    firstListed = nullptr;
    listMutex.UnlockAfterFork();
}

std::unique_lock<std::mutex> LockList()
{
    return Base::LockForkMutex<listMutex, EmptyInChild>();
}

}  // namespace

/// @return what points to the record, or the null pointer at the end of the list.
WorkerRecord** WorkerRecord::LinkTo(const WorkerRecord* record)
{
    WorkerRecord** link = &firstListed;
    while (*link != nullptr && *link != record) {
        link = &(*link)->next;
    }
    return link;
}

void WorkerRecord::List(const IThread& worker)
{
    const std::unique_lock<std::mutex> lock = LockList();
    WorkerRecord** const link = LinkTo(this);
    if (*link == nullptr) {
        object = &worker;
        next = nullptr;
        *link = this;
    }
}

void WorkerRecord::Unlist()
{
    const std::unique_lock<std::mutex> lock = LockList();
    WorkerRecord** const link = LinkTo(this);
    if (*link != nullptr) {
        *link = next;
    }
}

void WorkerRecord::VisitAll(const std::function<void(const IThread&)>& visit)
{
    const std::unique_lock<std::mutex> lock = LockList();
    for (const WorkerRecord* record = firstListed; record != nullptr; record = record->next) {
        visit(*record->object);
    }
}

WorkerRefusals WorkerRecord::Apply(pthread_t thread) const
{
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

void WorkerRefusals::Log(const std::string& name) const
{
    for (const auto& [wish, error] :
         {std::pair("priority", priority), std::pair("CPU affinity", affinity)}) {
        if (error != 0) {
            char buffer[128];  // No allocation: Start() must not throw once the thread runs.
            LogLine(LogType::Warning, LogModule::Ithread)
                << "Thread (" << (name.empty() ? "name not defined" : name) << ") runs without its "
                << wish << ": " << strerror_r(error, buffer, sizeof buffer);
        }
    }
}

}  // namespace Tolvex::Interfaces
