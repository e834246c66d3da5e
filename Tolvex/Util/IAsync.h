#pragma once

#include <chrono>
#include <functional>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Runs one callback once, after a delay, on a detached thread of its own.
///
/// Create it with new and drop the pointer: from the moment the thread runs the object belongs to
/// the callback, which deletes it (`delete async`). A callback that does not delete it leaks it.
/// The callback's captures stay alive until it returns, also after it has deleted the object. The
/// user data is never read or deleted here. See examples/DelayedCallback.cpp.
/// @par Errors
/// When no thread can be created nothing is reported: the callback never runs, and the object stays
/// alive and owned by nobody. An empty callback ends the process (std::bad_function_call on the new
/// thread), as does any exception that a callback lets out.
/// @par Thread safety
/// Reentrant. The creator does not touch the object after construction.
class TOLVEX_EXPORT IAsync
{
public:
    /// Starts the thread and returns at once.
    ///
    /// @param waitingTime  Time before the call in ms; 0 or less calls at once on the new thread.
    /// @param work         Receives this object, and owns it.
    /// @param context      Kept for the callback; not owned.
    IAsync(const std::chrono::milliseconds& waitingTime, std::function<void(IAsync*)> work,
           void* context);

    IAsync(const IAsync&) = delete;
    IAsync& operator=(const IAsync&) = delete;

    /// @return what the creator handed in as user data.
    void* GetUserData() const { return userData; }

    /// Entry of the thread.
    /// @param self  The IAsync, which becomes the callback's.
    /// @return null, always.
    static void* RunThread(void* self);

private:
    std::chrono::milliseconds delay;
    std::function<void(IAsync*)> callback;
    void* userData;
};

}  // namespace Tolvex::Util
