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
/// expiry for which the system has no thread or memory, or that meets another one still waiting to
/// be delivered, is lost without a word. The timer owns the callback, not the user data, and may be
/// destroyed by its own callback. The period is not moved by steps of the wall clock.
///
/// Every callback that is running keeps the callable (and what it captures) alive for itself, even
/// beyond the life of the timer: such a call must not touch the Timer that it was given. An expiry
/// that is delivered after the timer was destroyed, removed or armed anew is dropped, even if
/// another timer stands at the same address by then. See examples/PeriodicTimer.cpp.
///
/// A child of fork() has no timers: there it may not use or destroy those of its parent, but make
/// its own.
/// @par Errors
/// Operations return false and leave the reason in the error text (IError). The constructors may
/// throw std::bad_alloc. An exception that leaves the callback ends the process, as does an expiry
/// of a timer with an empty callback (std::bad_function_call).
/// @par Thread safety
/// Caller serialises: SetTime(), Create(), Remove() and the destructor take no lock against each
/// other. The callback runs on threads of the C library, never on the caller's, and does its own
/// locking. Nothing here blocks.
class TOLVEX_EXPORT Timer : public Interfaces::IError
{
public:
    /// Holds a place: no system timer and an empty callback. SetTime() fails, Remove() does
    /// nothing.
    Timer();

    /// Creates and arms the timer at once.
    ///
    /// A failure is left in the error text: of SetTime() alone, "Timer not initialized" when the
    /// system timer could not be created.
    /// @param milliseconds  Period in ms; 0 leaves the timer disarmed.
    /// @param work          Called for each expiry, with this timer.
    /// @param context       Kept for the callback; not owned.
    /// @param stackSize     Stack of each callback's thread in bytes, of which the system's
    ///                      bookkeeping takes a part, some 4 KiB.
    /// @note A stack size that the system refuses (below PTHREAD_STACK_MIN) is not reported: the
    /// threads then have the default size.
    Timer(int milliseconds, std::function<void(Timer*)> work, void* context, int stackSize);

    /// Deletes the system timer and lets go of the callback. Does not wait for callbacks that run.
    ~Timer() override;

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Creates the system timer, disarmed. The full constructor has done so already: another call
    /// replaces the timer, and the callback's threads have the default stack size from then on.
    ///
    /// @return false with "Create timer error"; always so for a timer built without arguments.
    /// @note A timer that is created after Remove() can be armed, but its expiries do nothing.
    bool Create();

    /// Arms the timer, or re-arms it and drops the old setting.
    ///
    /// @param milliseconds  New period in ms; 0 disarms; a negative value fails, and the old
    ///                      setting stays.
    /// @return false with "Timer not initialized" or "Set timer error".
    bool SetTime(int milliseconds);

    /// Deletes the system timer, for good. Callbacks that run are not waited for.
    ///
    /// @return true also when there is none; false when the system refuses, which is reported on
    /// standard output and leaves the error text alone.
    bool Remove();

    /// @return what the creator handed in as user data.
    void* GetUserData() const { return userData; }

    /// Receives the expiries from the C library.
    ///
    /// @param value  Holds a Timer. Null, or one that no longer exists, is ignored.
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
