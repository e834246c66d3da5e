#pragma once

#include <csignal>
#include <ctime>
#include <functional>
#include <memory>

#include "Tolvex/Interfaces/IError.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Periodic timer that calls a stored callback on a short-lived thread for every expiry.
///
/// The first call comes one period after arming; calls overlap when one outlasts the period. An
/// expiry is lost without a report if the system has no thread or memory for it, or if an earlier
/// one is still waiting to be delivered. The timer owns the callback, not the user data, and may be
/// destroyed by its own callback. Steps of the wall clock do not move the period. See
/// examples/PeriodicTimer.cpp.
///
/// A callback that is running keeps the callable and its captures alive, even after the timer was
/// destroyed. A callback that runs after the destruction must not touch the Timer.
///
/// **Stale expiries.** An expiry may be delivered late, when the timer has been changed in the
/// meantime:
/// - If the timer was destroyed, the expiry is dropped.
/// - After Remove(), SetTime() or Create() the expiry still calls the callback.
/// - If a new timer has the address of a destroyed one, the expiry calls the callback of the new
///   timer, too early.
///
/// A program that such a call would harm has two ways to avoid it. It can let the callback compare
/// the clock with the time at which the first call is due. For the last case it can also build the
/// new timer before it destroys the old one, so that the two have different addresses.
///
/// A child of fork() has no timers. It may not use or destroy those of its parent, but may make its
/// own; see docs/threading.md for the risk of that.
/// @par Errors
/// Operations return false and leave the reason in the error text (IError). The constructors may
/// throw std::bad_alloc. An exception that leaves the callback ends the process, and so does an
/// expiry of a timer with an empty callback (std::bad_function_call).
/// @par Thread safety
/// Caller serialises: SetTime(), Create(), Remove() and the destructor take no lock against each
/// other. The callback runs on threads of the C library, never on the caller's, and does its own
/// locking. No operation blocks.
class TOLVEX_EXPORT Timer : public Interfaces::IError
{
public:
    /// Makes a place holder without a system timer, with an empty callback. SetTime() fails and
    /// Remove() does nothing.
    Timer();

    /// Creates and arms the timer at once.
    ///
    /// A failure is left in the error text: "Set timer error", or "Timer not initialized" if the
    /// system timer could not be created.
    /// @param milliseconds  Period in ms; 0 leaves the timer disarmed.
    /// @param work          Called for each expiry, with this timer.
    /// @param context       Kept for the callback; not owned.
    /// @param stackSize     Stack of each callback's thread in bytes. The system itself uses about
    ///                      4 KiB of it.
    /// @note If the system refuses the stack size (below PTHREAD_STACK_MIN), this is not reported
    /// and the threads have the default size.
    Timer(int milliseconds, std::function<void(Timer*)> work, void* context, int stackSize);

    /// Deletes the system timer and releases the callback. Does not wait for callbacks that run.
    ~Timer() override;

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Creates the system timer, disarmed. The full constructor calls it; a second call replaces
    /// the system timer, and the threads of the callback then have the default stack size.
    ///
    /// @return false with "Create timer error"; always false for a place holder.
    /// @note A system timer that Create() makes after Remove() can be armed, but its expiries do
    /// nothing.
    bool Create();

    /// Arms the timer, or re-arms it and drops the old setting.
    ///
    /// @param milliseconds  New period in ms; 0 disarms; a negative value fails, and the old
    ///                      setting stays.
    /// @return false with "Timer not initialized" or "Set timer error".
    bool SetTime(int milliseconds);

    /// Deletes the system timer. To continue, make a new Timer: see the note at Create(). Callbacks
    /// that run are not waited for; a stale expiry may still call the callback.
    ///
    /// @return true, also if there is no system timer. If the system refuses: false, after a
    /// message on standard output; the error text does not change.
    bool Remove();

    /// @return the user data that was given to the constructor.
    void* GetUserData() const { return userData; }

    /// Receives the expiries from the C library.
    ///
    /// Calls the callback of the timer. A program may also call it directly.
    /// @param value  Holds a Timer. Null, or the address of no living timer, is ignored.
    static void CB(sigval value);

private:
    explicit Timer(std::function<void(Timer*)> work);

    void* userData = nullptr;
    std::shared_ptr<std::function<void(Timer*)>> callback;  ///< shared with the calls that run
    timer_t timerId = nullptr;                              ///< null: no timer
    sigevent notification = {};                             ///< how expiries are delivered
    itimerspec times = {};  ///< first expiry and interval, as last set
    bool stopping = false;  ///< shared: set by the destroying thread, read by callback threads
};

}  // namespace Tolvex::Util
