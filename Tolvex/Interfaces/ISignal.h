#pragma once

#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

/// Event dispatcher: a listener thread waits for events, and each event is handled on a new thread.
///
/// A derived class implements WaitSignal(), which waits for an event, and FireSignal(), which
/// handles one. A slow handler never delays the listener: handlers of successive events overlap and
/// end in any order. The derived class can notify observers that are registered here.
///
/// The destructor does not wait for any thread. Before the object is destroyed, the derived class
/// has to call Stop(), make WaitSignal() return and let its handlers end. See
/// examples/EventDispatcher.cpp.
/// @par Errors
/// Start() and RunThread() do not report a thread that cannot be created, or an event that is
/// dropped. An exception that leaves WaitSignal() or FireSignal() ends the process.
/// @par Thread safety
/// Controlling thread: Start(). Thread-safe: Stop(), AddCallback(), RemoveCallback(). DoCallback()
/// states its own restriction.
class TOLVEX_EXPORT ISignal
{
public:
    /// Observer of an ISignal; override InvokeSignal().
    /// @par Thread safety
    /// Called on the threads that call DoCallback(), possibly on several at the same time.
    class TOLVEX_EXPORT ISignalDelegate
    {
    public:
        /// Remove the observer from its dispatchers first.
        virtual ~ISignalDelegate();

        /// Called by ISignal::DoCallback() on the thread that made that call. Does nothing here.
        ///
        /// @param signal  The dispatcher; not owned.
        /// @param data    What DoCallback() was given; not owned.
        virtual void InvokeSignal(ISignal* signal, void* data);
    };

    /// Makes a dispatcher that does not run, without a name.
    ISignal();
    /// Asks the listener to end, as Stop() does. Does not wait: see above.
    virtual ~ISignal();

    ISignal(const ISignal&) = delete;
    ISignal& operator=(const ISignal&) = delete;

    /// Listener thread: blocks until an event arrives.
    ///
    /// @param data  Preset to null; receives the pointer for FireSignal(). Not owned here.
    /// @return true for an event; false if there is none, for instance after a time limit. The
    /// listener notices Stop() only between two calls.
    virtual bool WaitSignal(void** data) = 0;

    /// Handles one event, on a thread of its own. Several may run at the same time.
    ///
    /// @param data  The pointer that WaitSignal() stored. The derived class decides who owns it.
    virtual void FireSignal(void* data) = 0;

    /// Starts the listener thread, unless it was started before.
    ///
    /// @note Works once: after Stop() a second Start() does nothing.
    /// @note If the thread cannot be created, this is not reported and the object counts as
    /// running. Call Stop() and then Start() to try again.
    void Start();

    /// Makes the listener end after its current WaitSignal(). Wakes no thread and waits for none.
    void Stop();

    /// The listener's loop; returns after Stop(). If there is no thread or no memory for a handler,
    /// the listener drops the event and reports nothing.
    void RunThread();

    /// Entry of the listener thread.
    /// @param self  The ISignal; not owned.
    /// @return null, always.
    static void* RunPosixThread(void* self);

    /// Entry of the handler threads.
    /// @param record  Made by RunThread(); the handler thread owns and deletes it.
    /// @return null, always.
    static void* SignalFirePosix(void* record);

    /// Appends an observer, unless it is already in the list.
    ///
    /// @param delegate  Not owned; must outlive the registration. A null pointer is stored, and
    ///                  skipped by DoCallback().
    void AddCallback(ISignalDelegate* delegate);

    /// Removes an observer.
    /// @param delegate  An unknown one is ignored.
    void RemoveCallback(ISignalDelegate* delegate);

    /// Calls all observers in the order of their registration, on the calling thread and without a
    /// lock. Calls none if the object is not running.
    ///
    /// An observer may add and remove observers while it is called. An observer that it adds is
    /// called too. If it removes itself or an earlier observer, the next one is skipped. Other
    /// threads must not add or remove observers during the call.
    /// @param data  Passed on as it is; not owned.
    void DoCallback(void* data);

private:
    void StartHandler(void* data);

    pthread_t threadHandle = 0;  ///< shared: listener thread; never cleared once set

protected:
    std::string signalName;  ///< OS name of the listener, at most 15 characters; set before Start()
    bool running = false;    ///< shared: the listener's loop runs while it is true

private:
    std::vector<ISignalDelegate*> delegates;  ///< in insertion order; not owned
    std::mutex fireMutex;                     ///< held while a handler thread is being created
    std::mutex delegatesMutex;  ///< guards delegates in add and remove; not held while called
};

}  // namespace Tolvex::Interfaces
