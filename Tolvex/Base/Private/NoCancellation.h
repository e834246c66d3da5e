/// @file
/// A scope in which the calling thread is not cancelled.
#pragma once

#include <pthread.h>

namespace Tolvex::Base {

/// Disables cancellation of the calling thread while it exists. A request waits until the end of
/// the scope.
///
/// For short pieces of work that must be completed, and for destructors that reach a cancellation
/// point: a cancellation that leaves a destructor ends the process.
/// @par Thread safety
/// Belongs to the thread that made it. Nests.
class NoCancellation
{
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &stateBefore); }
    ~NoCancellation() { pthread_setcancelstate(stateBefore, nullptr); }

    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int stateBefore = PTHREAD_CANCEL_ENABLE;
};

}  // namespace Tolvex::Base
