/// @file
/// A thread for calls that may hang, created before they are needed.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "Tolvex/Base/Private/PosixThread.h"

namespace Tolvex::Base {

/// A thread that makes one call at a time, for a caller who waits for a limited time only.
///
/// Create() starts the thread, so that a later call cannot fail for lack of one. The object
/// may be destroyed while a call hangs: the call continues on the detached thread.
/// @par Thread safety
/// Caller serialises. In a forked child the thread does not exist: Run() makes no call there.
class BoundedThread
{
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Shared, because it may outlive its caller. Must not throw.
    using Call = std::shared_ptr<const std::function<void()>>;

    enum class Late
    {
        NotCalled,  ///< the call is never made
        Called      ///< the call is made after the earlier ones, unless it is one of them
    };

    /// @param name      OS name of the thread.
    /// @param handlers  See StartDetachedThread().
    /// @return null if the thread cannot be created.
    static std::unique_ptr<BoundedThread> Create(const std::string& name, SignalHandlers handlers);

    /// Does not wait. Pending calls with Late::Called are still made.
    ~BoundedThread();

    BoundedThread(const BoundedThread&) = delete;
    BoundedThread& operator=(const BoundedThread&) = delete;

    /// Makes room for so many pending calls. Create() makes room for one.
    void Reserve(std::size_t calls);

    /// Makes the call on the thread and waits until it ends or the deadline passes.
    ///
    /// Allocates nothing while there is room. Throws std::bad_alloc otherwise, without a call.
    /// @param late  What happens to a call that has not begun at the deadline.
    /// @return false if the call had not ended at the deadline. Also false, at once and without a
    /// call, in a forked child and, with Late::NotCalled, while an earlier call is pending or runs.
    bool Run(const Call& call, Deadline deadline, Late late);

private:
    struct State;

    BoundedThread();
    static void* Serve(void* argument);

    const std::shared_ptr<State> state;  ///< shared with the thread
};

}  // namespace Tolvex::Base
