#include "Tolvex/Interfaces/Private/WorkerThreads.h"

#include <algorithm>
#include <unistd.h>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Interfaces {
namespace {

constexpr std::size_t usualThreads = 4;  ///< reserved before the first thread
constexpr std::chrono::milliseconds pollPeriod(1);

template <typename Condition>
void AwaitEndOf(Condition condition, std::chrono::milliseconds limit)
{
    const auto begin = std::chrono::steady_clock::now();
    while (condition() && std::chrono::steady_clock::now() - begin < limit) {
        {
            // Cancelled between the sleeps: the thread sanitizer cannot follow a thread that is
            // cancelled inside one.
            const Base::NoCancellation scope;
            Base::SleepFor(pollPeriod);
        }
        pthread_testcancel();
    }
}

}  // namespace

WorkerThreads::WorkerThreads() : process(getpid())
{
    threads.reserve(usualThreads);
}

WorkerThreads::RunNumber WorkerThreads::NextRun()
{
    if (!AreOfThisProcess()) {
        threads.clear();
        Base::StoreShared(process, getpid());
    }
    // Reserved here, so that nothing can fail once the thread exists.
    threads.reserve(threads.size() + 1);

    const RunNumber next = newest + 1 == noRun ? 1 : newest + 1;
    Base::StoreShared(newest, next);
    return next;
}

WorkerRefusals WorkerThreads::ApplySettings(pthread_t thread) const
{
    WorkerRefusals refusals;
    if (policy.has_value()) {
        refusals.priority = pthread_setschedparam(thread, *policy, &priority);
    }
    if (cpus.has_value()) {
        refusals.affinity = pthread_setaffinity_np(thread, sizeof(cpu_set_t), &*cpus);
    }
    return refusals;
}

void WorkerThreads::Add(pthread_t handle, RunNumber run)
{
    threads.push_back({handle, run, false, clock});
}

void WorkerThreads::Remove(RunNumber run)
{
    std::erase_if(threads, [run](const Entry& entry) { return entry.run == run; });
}

void WorkerThreads::MarkAborted(pthread_t handle)
{
    for (Entry& entry : threads) {
        if (pthread_equal(entry.handle, handle) != 0) {
            entry.aborted = true;
        }
    }
}

std::optional<pthread_t> WorkerThreads::Newest() const
{
    if (threads.empty() || threads.back().run != newest) {
        return std::nullopt;
    }
    return threads.back().handle;
}

bool WorkerThreads::IsAborted(RunNumber run) const
{
    return std::any_of(threads.begin(), threads.end(),
                       [run](const Entry& entry) { return entry.run == run && entry.aborted; });
}

WorkerThreads::Run WorkerThreads::OwnRun()
{
    const std::lock_guard<std::mutex> lock(mutex);
    for (const Entry& entry : threads) {
        if (pthread_equal(entry.handle, pthread_self()) != 0) {
            return {entry.run, entry.clock};
        }
    }
    return {};
}

bool WorkerThreads::HasRun(RunNumber run)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(threads.begin(), threads.end(),
                       [run](const Entry& entry) { return entry.run == run; });
}

bool WorkerThreads::AreOfThisProcess() const
{
    return Base::LoadShared(process) == getpid();
}

bool WorkerThreads::HasOthers(Others which)
{
    if (!AreOfThisProcess()) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(threads.begin(), threads.end(), [which](const Entry& entry) {
        return pthread_equal(entry.handle, pthread_self()) == 0 &&
               (which == Others::All || !entry.aborted);
    });
}

bool WorkerThreads::HasOlder(RunNumber run)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return run != noRun && !threads.empty() && threads.front().run != run;
}

void WorkerThreads::AwaitOthers(std::chrono::milliseconds limit)
{
    AwaitEndOf([this] { return HasOthers(Others::All); }, limit);
}

void WorkerThreads::AwaitOlder(RunNumber run, std::chrono::milliseconds limit)
{
    AwaitEndOf([this, run] { return HasOlder(run); }, limit);
}

void WorkerThreads::AwaitOthersNotAborted()
{
    while (HasOthers(Others::NotAborted)) {
        Base::SleepFor(pollPeriod);
    }
}

}  // namespace Tolvex::Interfaces
