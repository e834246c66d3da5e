#include "Tolvex/Interfaces/ISignal.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Interfaces {
namespace {

/// One event on its way to its handler thread, which owns it.
struct HandlerRecord
{
    ISignal* signal;
    void* data;
};

}  // namespace

// ------------------------------------------------------------------------------------- observers

ISignal::ISignalDelegate::~ISignalDelegate() = default;

void ISignal::ISignalDelegate::InvokeSignal(ISignal* /*signal*/, void* /*data*/) {}

void ISignal::AddCallback(ISignalDelegate* delegate)
{
    const std::lock_guard<std::mutex> lock(delegatesMutex);
    if (std::find(delegates.begin(), delegates.end(), delegate) == delegates.end()) {
        delegates.push_back(delegate);
    }
}

void ISignal::RemoveCallback(ISignalDelegate* delegate)
{
    const std::lock_guard<std::mutex> lock(delegatesMutex);
    const auto found = std::find(delegates.begin(), delegates.end(), delegate);
    if (found != delegates.end()) {
        delegates.erase(found);
    }
}

void ISignal::DoCallback(void* data)
{
    // Required: a Stop() during the walk does not cut it short.
    if (!Base::LoadShared(running)) {
        return;
    }

    // Required: an observer that removes itself hides the next from the walk, and one that is added
    // is called: the walk goes by position and reads the size anew each time.
    for (std::size_t i = 0; i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->InvokeSignal(this, data);
        }
    }
}

// --------------------------------------------------------------------------------------- threads

ISignal::ISignal() = default;

ISignal::~ISignal()
{
    // Required: neither listener nor handlers are waited for; that is up to the derived class.
    Stop();
}

void ISignal::Start()
{
    // Required: the handle is never cleared, so an object that has run does not run again.
    if (Base::LoadShared(running) || Base::LoadShared(threadHandle) != 0) {
        return;
    }

    // Required: "running" stays set when the thread cannot be created.
    Base::StoreShared(running, true);
    pthread_t listener = 0;
    if (Base::StartDetachedThread(listener, signalName.c_str(), RunPosixThread, this) == 0) {
        Base::StoreShared(threadHandle, listener);
    }
}

void ISignal::Stop()
{
    // Required: nobody is woken or waited for; the listener ends after its current WaitSignal().
    Base::StoreShared(running, false);
}

void* ISignal::RunPosixThread(void* self)
{
    static_cast<ISignal*>(self)->RunThread();
    return nullptr;
}

void ISignal::RunThread()
{
    while (Base::LoadShared(running)) {
        void* data = nullptr;
        if (WaitSignal(&data)) {
            StartHandler(data);
        }
    }
}

void ISignal::StartHandler(void* data)
{
    const std::lock_guard<std::mutex> lock(fireMutex);
    std::unique_ptr<HandlerRecord> record(new HandlerRecord{this, data});

    pthread_t handler = 0;
    const int error = Base::StartDetachedThread(handler, nullptr, SignalFirePosix, record.get());
    if (error == 0) {
        static_cast<void>(record.release());  // the handler thread's now, if it still exists
    }
    // Required: without a thread the event is dropped silently.
}

void* ISignal::SignalFirePosix(void* record)
{
    // Deletes the record also when the handler is cancelled.
    const std::unique_ptr<const HandlerRecord> event(static_cast<HandlerRecord*>(record));
    event->signal->FireSignal(event->data);
    return nullptr;
}

}  // namespace Tolvex::Interfaces
