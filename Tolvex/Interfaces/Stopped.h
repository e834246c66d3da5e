#pragma once

#include <concepts>

#include "Tolvex/Interfaces/IThread.h"

namespace Tolvex::Interfaces {

/// A worker that is stopped before any part of it is destroyed.
///
/// `Stopped<Recorder> recorder;` is a Recorder whose thread has ended before the destructor of
/// Recorder begins. That destructor need not stop the thread. The destructor of Stopped also waits
/// for a thread that was cancelled or aborted. The delegates are told about the stop while the
/// object is still complete. See examples/WorkerWithObserver.cpp.
/// @tparam T  The worker class, derived publicly from IThread; its constructors are inherited.
/// @par Thread safety
/// That of T. Never destroy it on its own worker thread.
template <std::derived_from<IThread> T>
class Stopped final : public T
{
public:
    using T::T;

    /// Blocks until the thread has ended. The calling thread is not cancelled while it waits.
    ~Stopped() override { this->StopBeforeDestruction(); }
};

}  // namespace Tolvex::Interfaces
