/// @file
/// A thread for calls that may hang, made before they are needed.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace Tolvex::Base {

/// A thread that makes one call at a time, for a caller who waits for a limited time only.
///
/// The thread is made with the object, so that none is missing later. The object may be destroyed
/// while a call hangs: the call goes on alone.
/// @par Thread safety
/// Caller serialises. In a forked child, which does not have the thread, do not call Run().
class BoundedThread
{
public:
    using Deadline = std::chrono::steady_clock::time_point;

    enum class Result
    {
        Done,
        Busy,    ///< nothing was called: an earlier call goes on
        Overrun  ///< the call has not ended by the deadline
    };

    enum class Late
    {
        NotCalled,  ///< it is never made
        Called      ///< it is made as soon as the thread comes to it
    };

    /// @param name  OS name of the thread.
    /// @param kept  Kept until the thread has ended, for what the calls need; may be null.
    /// @return null without a thread.
    static std::unique_ptr<BoundedThread> Create(const std::string& name,
                                                 std::shared_ptr<const void> kept = nullptr);

    /// Does not wait. A call that Run() has left to the thread is made.
    ~BoundedThread();

    BoundedThread(const BoundedThread&) = delete;
    BoundedThread& operator=(const BoundedThread&) = delete;

    /// Makes the call on the thread, and waits for its end or for the deadline.
    /// Allocates nothing.
    /// @param call  Lets no exception out.
    /// @param late  What happens to a call that the thread has not begun by the deadline.
    Result Run(std::function<void()> call, Deadline deadline, Late late);

private:
    struct State;

    explicit BoundedThread(std::shared_ptr<State> shared);
    static void* Serve(void* argument);

    const std::shared_ptr<State> state;  ///< shared with the thread
};

}  // namespace Tolvex::Base
