#pragma once

#include <chrono>
#include <functional>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Runs one callback once, after a delay, on a detached thread of its own.
///
/// Create the object with new and do not keep the pointer. Once the thread runs, the callback owns
/// the object and must delete it (`delete async`), or the object leaks. The thread calls a copy of
/// the callback: its captures stay alive until the call returns, even if the callback has deleted
/// the object. The library neither reads nor deletes the user data. See
/// examples/DelayedCallback.cpp.
/// @par Errors
/// If the thread cannot be created, this is not reported: the callback never runs, and the object
/// leaks. An empty callback ends the process (std::bad_function_call on the new thread), and so
/// does any exception that leaves the callback.
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

    /// @return the user data that was given to the constructor.
    void* GetUserData() const { return userData; }

    /// Entry of the thread.
    /// @param self  The IAsync; the callback owns it.
    /// @return null, always.
    static void* RunThread(void* self);

private:
    std::chrono::milliseconds delay;
    std::function<void(IAsync*)> callback;
    void* userData;
};

}  // namespace Tolvex::Util
