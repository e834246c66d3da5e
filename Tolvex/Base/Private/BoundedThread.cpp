#include "Tolvex/Base/Private/BoundedThread.h"

#include <condition_variable>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace Tolvex::Base {

struct BoundedThread::State
{
    /// In a forked child the thread does not exist, and may hold the child's copy of the mutex.
    bool HasThread() const { return process == getpid(); }
    bool IsIdle() const { return asked == nullptr && running == nullptr; }

    std::mutex mutex;                 ///< guards the members below
    std::condition_variable changed;  ///< one of them has changed
    Call asked;                       ///< to be made next; null: none
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

BoundedThread::BoundedThread() : state(std::make_shared<State>()) {}

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
        own.changed.wait(lock, [&own] { return own.ending || own.asked != nullptr; });
        if (own.asked == nullptr) {
            return nullptr;
        }
        own.running = std::exchange(own.asked, nullptr);
        lock.unlock();
        (*own.running)();
        lock.lock();
        own.running = nullptr;
        own.changed.notify_all();
    }
}

bool BoundedThread::Run(Call call, Deadline deadline, Late late)
{
    if (!state->HasThread()) {
        return false;
    }
    std::unique_lock<std::mutex> lock(state->mutex);
    if (!state->IsIdle()) {
        return false;
    }
    state->asked = std::move(call);
    state->changed.notify_all();
    const bool done = state->changed.wait_until(lock, deadline, [this] { return state->IsIdle(); });
    if (!done && late == Late::NotCalled) {
        state->asked = nullptr;  // The thread may not have run since it was asked.
    }
    return done;
}

}  // namespace Tolvex::Base
