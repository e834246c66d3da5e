#include "Tolvex/Interfaces/Private/ThreadRoll.h"

#include <algorithm>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Interfaces {
namespace {

constexpr std::size_t usualThreads = 4;  ///< room that is there before the first thread
constexpr std::chrono::milliseconds pollPeriod(1);

template <typename Condition>
void AwaitEndOf(Condition condition, std::chrono::milliseconds limit)
{
    const auto begin = std::chrono::steady_clock::now();
    while (condition() && std::chrono::steady_clock::now() - begin < limit) {
        {
            // Cancelled between the sleeps: a sanitizer loses sight of a thread that is cancelled
            // inside one.
            const Base::NoCancellation scope;
            Base::SleepFor(pollPeriod);
        }
        pthread_testcancel();
    }
}

}  // namespace

ThreadRoll::ThreadRoll()
{
    threads.reserve(usualThreads);
}

ThreadRoll::Number ThreadRoll::NextNumber()
{
    // The room is made here, so that nothing can fail once the thread exists.
    threads.reserve(threads.size() + 1);

    const Number next = newest + 1 == noNumber ? 1 : newest + 1;
    Base::StoreShared(newest, next);
    return next;
}

void ThreadRoll::Enter(pthread_t handle, Number number)
{
    threads.push_back({handle, number, false});
}

void ThreadRoll::Leave(Number number)
{
    std::erase_if(threads, [number](const Entry& entry) { return entry.number == number; });
}

void ThreadRoll::MarkAborted(pthread_t handle)
{
    for (Entry& entry : threads) {
        if (pthread_equal(entry.handle, handle) != 0) {
            entry.aborted = true;
        }
    }
}

bool ThreadRoll::IsAborted(Number number) const
{
    return std::any_of(threads.begin(), threads.end(), [number](const Entry& entry) {
        return entry.number == number && entry.aborted;
    });
}

ThreadRoll::Number ThreadRoll::OwnNumber()
{
    const std::lock_guard<std::mutex> lock(mutex);
    for (const Entry& entry : threads) {
        if (pthread_equal(entry.handle, pthread_self()) != 0) {
            return entry.number;
        }
    }
    return noNumber;
}

bool ThreadRoll::HasOthers(Others which)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(threads.begin(), threads.end(), [which](const Entry& entry) {
        return pthread_equal(entry.handle, pthread_self()) == 0 &&
               (which == Others::All || !entry.aborted);
    });
}

bool ThreadRoll::HasOlder(Number number)
{
    const std::lock_guard<std::mutex> lock(mutex);
    return number != noNumber && !threads.empty() && threads.front().number != number;
}

void ThreadRoll::AwaitOthers(std::chrono::milliseconds limit)
{
    AwaitEndOf([this] { return HasOthers(Others::All); }, limit);
}

void ThreadRoll::AwaitOlder(Number number, std::chrono::milliseconds limit)
{
    AwaitEndOf([this, number] { return HasOlder(number); }, limit);
}

void ThreadRoll::AwaitOthersNotAborted()
{
    while (HasOthers(Others::NotAborted)) {
        Base::SleepFor(pollPeriod);
    }
}

}  // namespace Tolvex::Interfaces
