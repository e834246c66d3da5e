#include "Tolvex/Base/Private/BoundedThread.h"

#include <condition_variable>
#include <mutex>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/PosixThread.h"

namespace Tolvex::Base {

struct BoundedThread::State
{
    enum class Phase
    {
        Idle,
        Asked,
        Calling
    };

    std::mutex mutex;                 ///< guards the phase
    std::condition_variable changed;  ///< the phase has changed
    Phase phase = Phase::Idle;
    bool ending = false;         ///< guarded by the mutex
    std::function<void()> call;  ///< written while idle, called while calling
    std::shared_ptr<const void> kept;
    const pid_t process = getpid();
};

std::unique_ptr<BoundedThread> BoundedThread::Create(const std::string& name,
                                                     std::shared_ptr<const void> kept)
{
    auto state = std::make_shared<State>();
    state->kept = std::move(kept);
    std::unique_ptr<BoundedThread> made(new BoundedThread(state));
    auto forThread = std::make_unique<std::shared_ptr<State>>(std::move(state));
    pthread_t handle = 0;
    if (StartDetachedThread(handle, name.c_str(), Serve, forThread.get()) != 0) {
        return nullptr;
    }
    static_cast<void>(forThread.release());  // Serve() deletes it
    return made;
}

BoundedThread::BoundedThread(std::shared_ptr<State> shared) : state(std::move(shared)) {}

BoundedThread::~BoundedThread()
{
    // In a forked child the thread does not exist, and may hold the child's copy of the mutex.
    if (state->process != getpid()) {
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
        own.changed.wait(lock, [&own] { return own.ending || own.phase == State::Phase::Asked; });
        if (own.phase != State::Phase::Asked) {
            return nullptr;
        }
        own.phase = State::Phase::Calling;
        lock.unlock();
        own.call();
        lock.lock();
        own.phase = State::Phase::Idle;
        own.changed.notify_all();
    }
}

BoundedThread::Result BoundedThread::Run(std::function<void()> call, Deadline deadline, Late late)
{
    std::unique_lock<std::mutex> lock(state->mutex);
    if (state->phase != State::Phase::Idle) {
        return Result::Busy;
    }
    state->call = std::move(call);
    state->phase = State::Phase::Asked;
    state->changed.notify_all();
    const bool done = state->changed.wait_until(
        lock, deadline, [this] { return state->phase == State::Phase::Idle; });
    // The thread may not have run since it was asked. Then the request is taken back.
    if (!done && late == Late::NotCalled && state->phase == State::Phase::Asked) {
        state->phase = State::Phase::Idle;
    }
    return done ? Result::Done : Result::Overrun;
}

}  // namespace Tolvex::Base
