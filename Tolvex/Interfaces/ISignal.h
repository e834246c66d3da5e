#pragma once

#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

/// Event dispatcher: a listener thread waits for events, and each event is handled on a new thread.
///
/// A derived class says in WaitSignal() where events come from and in FireSignal() what is done
/// about one. A slow handler never delays the listener: handlers of successive events overlap and
/// end in any order. Observers can be registered for the derived class to notify.
///
/// Destruction waits for nobody. Before the object goes away the derived class has to call Stop(),
/// make WaitSignal() return and let its handlers end. See examples/EventDispatcher.cpp.
/// @par Errors
/// Threads that cannot be created are reported by nobody: see Start() and RunThread(). An exception
/// that WaitSignal() or FireSignal() lets out ends the process, as does std::bad_alloc when there
/// is no memory for an event's record.
/// @par Thread safety
/// Controlling thread: Start(). Thread-safe: Stop(), AddCallback(), RemoveCallback(). See
/// DoCallback() for what must not happen during a walk.
class TOLVEX_EXPORT ISignal
{
public:
    /// Observer of an ISignal; override InvokeSignal().
    /// @par Thread safety
    /// Called on whatever threads call DoCallback(), several at a time if they do.
    class TOLVEX_EXPORT ISignalDelegate
    {
    public:
        /// The observer has to be removed before.
        virtual ~ISignalDelegate();

        /// Called by ISignal::DoCallback() on the thread that made that call. Does nothing here.
        ///
        /// @param signal  The dispatcher; not owned.
        /// @param data    What DoCallback() was given; not owned.
        virtual void InvokeSignal(ISignal* signal, void* data);
    };

    /// Makes a dispatcher that does not run, without a name.
    ISignal();
    /// Asks the listener to end, as Stop() does, and waits for nobody: see above.
    virtual ~ISignal();

    ISignal(const ISignal&) = delete;
    ISignal& operator=(const ISignal&) = delete;

    /// Listener thread: blocks until an event arrives.
    ///
    /// @param data  Preset to null; receives what FireSignal() is to get. Not owned here.
    /// @return true for an event; false when there is none, for instance after a time limit. The
    /// listener looks at Stop() only between two calls.
    virtual bool WaitSignal(void** data) = 0;

    /// Handler thread of its own: handles one event. Several may run at the same time.
    ///
    /// @param data  What WaitSignal() gave for the event; whose it is, the derived class decides.
    virtual void FireSignal(void* data) = 0;

    /// Starts the listener thread, unless it is running or has been started before.
    ///
    /// @note Works once: after Stop() a second Start() does nothing.
    /// @note When no thread can be created nothing is reported, and the object counts as running;
    /// Stop() and a new Start() try again.
    void Start();

    /// Makes the listener end after its current WaitSignal(). Wakes and joins nobody.
    void Stop();

    /// The listener's loop; returns after Stop(). An event for whose handler no thread can be
    /// created is dropped without a word.
    void RunThread();

    /// Entry of the listener thread.
    /// @param self  The ISignal; not owned.
    /// @return null, always.
    static void* RunPosixThread(void* self);

    /// Entry of the handler threads.
    /// @param record  Made by RunThread(); taken over and deleted.
    /// @return null, always.
    static void* SignalFirePosix(void* record);

    /// Adds an observer behind the others, unless it is there already. Does not block for long.
    ///
    /// @param delegate  Not owned; must outlive the registration. A null is kept and skipped.
    void AddCallback(ISignalDelegate* delegate);

    /// Removes an observer.
    /// @param delegate  An unknown one is ignored.
    void RemoveCallback(ISignalDelegate* delegate);

    /// Calls all observers in the order of their registration, on the calling thread and without a
    /// lock; none when the object is not running.
    ///
    /// An observer may add and remove observers while it is called: what is added is called too,
    /// and when an entry up to the current one goes away the walk skips one. Other threads must not
    /// add or remove meanwhile.
    /// @param data  Handed on as it is; not owned.
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
