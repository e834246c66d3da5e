#include "Tolvex/Interfaces/ISignal.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Interfaces {
namespace {

/// One event for a handler thread, which owns it.
struct HandlerRecord
{
    ISignal* signal;
    void* data;
};

}  // namespace

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
    if (!Base::LoadShared(running)) {
        return;
    }

    // Required: takes no lock, and reads the size again after each call. An observer may therefore
    // add and remove observers. One that it adds is called; after it removes itself, the next one
    // is skipped.
    for (std::size_t i = 0; i < delegates.size(); ++i) {
        if (delegates[i] != nullptr) {
            delegates[i]->InvokeSignal(this, data);
        }
    }
}

ISignal::ISignal() = default;

ISignal::~ISignal()
{
    // Required: does not wait for the listener or the handlers. The derived class has to wait for
    // them before.
    Stop();
}

void ISignal::Start()
{
    // Required: the handle is never cleared, so Start() works once and does nothing after Stop().
    if (Base::LoadShared(running) || Base::LoadShared(threadHandle) != 0) {
        return;
    }

    // Required: if the thread cannot be created, this is not reported and "running" stays set.
    Base::StoreShared(running, true);
    pthread_t listener = 0;
    if (Base::StartDetachedThread(listener, signalName.c_str(), RunPosixThread, this) == 0) {
        Base::StoreShared(threadHandle, listener);
    }
}

void ISignal::Stop()
{
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
    std::unique_ptr<HandlerRecord> record(new (std::nothrow) HandlerRecord{this, data});

    pthread_t handler = 0;
    if (record != nullptr &&
        Base::StartDetachedThread(handler, nullptr, SignalFirePosix, record.get()) == 0) {
        static_cast<void>(record.release());  // The handler thread owns it, or has deleted it.
    }
    // Otherwise the event is dropped. This is not reported.
}

void* ISignal::SignalFirePosix(void* record)
{
    // Deletes the record even if the handler is cancelled.
    const std::unique_ptr<const HandlerRecord> event(static_cast<HandlerRecord*>(record));
    event->signal->FireSignal(event->data);
    return nullptr;
}

}  // namespace Tolvex::Interfaces
