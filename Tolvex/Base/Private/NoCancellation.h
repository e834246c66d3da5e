/// @file
/// Keeping pthread_cancel() out of a scope. Not installed.
#pragma once

#include <pthread.h>

namespace Tolvex::Base {

/// While it exists the calling thread is not cancelled; a request waits for the end of the scope.
///
/// For short pieces of work that must not be left half done, and for destructors that reach a
/// cancellation point: a cancellation that leaves a destructor ends the process.
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
