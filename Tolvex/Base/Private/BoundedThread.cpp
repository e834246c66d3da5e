#include "Tolvex/Base/Private/BoundedThread.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <unistd.h>
#include <vector>

namespace Tolvex::Base {

struct BoundedThread::State
{
    /// In a forked child the thread does not exist, and may hold the child's copy of the mutex.
    bool HasThread() const { return process == getpid(); }
    bool IsIdle() const { return pending.empty() && running == nullptr; }
    bool Has(const Call& call) const
    {
        return running == call || std::ranges::count(pending, call) != 0;
    }

    std::mutex mutex;                 ///< guards the members below
    std::condition_variable changed;  ///< one of them has changed
    std::vector<Call> pending;        ///< to be made, the first one next
    Call running;                     ///< null: none
    bool ending = false;
    const pid_t process = getpid();
};

std::unique_ptr<BoundedThread> BoundedThread::Create(const std::string& name,
                                                     SignalHandlers handlers)
{
    std::unique_ptr<BoundedThread> made(new BoundedThread);
    auto forThread = std::make_unique<std::shared_ptr<State>>(made->state);
    pthread_t handle = 0;
    if (StartDetachedThread(handle, name.c_str(), Serve, forThread.get(), handlers) != 0) {
        return nullptr;
    }
    static_cast<void>(forThread.release());  // Serve() deletes it
    return made;
}

BoundedThread::BoundedThread() : state(std::make_shared<State>())
{
    Reserve(1);
}

BoundedThread::~BoundedThread()
{
    if (!state->HasThread()) {
        return;
    }
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->ending = true;
    state->changed.notify_all();
}

void* BoundedThread::Serve(void* argument)
{
    const std::unique_ptr<std::shared_ptr<State>> taken(
        static_cast<std::shared_ptr<State>*>(argument));
    State& own = **taken;

    std::unique_lock<std::mutex> lock(own.mutex);
    for (;;) {
        own.changed.wait(lock, [&own] { return own.ending || !own.pending.empty(); });
        if (own.pending.empty()) {
            return nullptr;
        }
        own.running = own.pending.front();
        own.pending.erase(own.pending.begin());
        lock.unlock();
        (*own.running)();
        lock.lock();
        own.running = nullptr;
        own.changed.notify_all();
    }
}

void BoundedThread::Reserve(std::size_t calls)
{
    const std::lock_guard<std::mutex> lock(state->mutex);
    state->pending.reserve(calls);
}

bool BoundedThread::Run(const Call& call, Deadline deadline, Late late)
{
    if (!state->HasThread()) {
        return false;
    }
    std::unique_lock<std::mutex> lock(state->mutex);
    if (late == Late::NotCalled && !state->IsIdle()) {
        return false;
    }
    if (!state->Has(call)) {
        state->pending.push_back(call);
        state->changed.notify_all();
    }
    const bool done =
        state->changed.wait_until(lock, deadline, [this, &call] { return !state->Has(call); });
    if (!done && late == Late::NotCalled) {
        std::erase(state->pending, call);  // The thread may not have run since it was asked.
    }
    return done;
}

}  // namespace Tolvex::Base
