#pragma once

#include <concepts>

#include "Tolvex/Interfaces/IThread.h"

namespace Tolvex::Interfaces {

/// A worker that is stopped before any part of it is destroyed.
///
/// `Stopped<Recorder> recorder;` is a Recorder whose thread has ended when the destructor of
/// Recorder begins, whatever that destructor does or forgets. It also waits for a thread that was
/// cancelled or aborted. Delegates are told of the stop, while the object is still whole.
/// See examples/WorkerWithObserver.cpp.
/// @tparam T  The worker class, derived publicly from IThread; its constructors are taken over.
/// @par Thread safety
/// That of T. Must not be destroyed on its own worker thread.
template <std::derived_from<IThread> T>
class Stopped final : public T
{
public:
    using T::T;

    /// Blocks until the thread has ended; not cancelled while it waits.
    ~Stopped() override { this->StopBeforeDestruction(); }
};

}  // namespace Tolvex::Interfaces
