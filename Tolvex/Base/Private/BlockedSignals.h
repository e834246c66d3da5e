/// @file
/// A scope in which the calling thread runs no signal handlers.
#pragma once

#include <csignal>

namespace Tolvex::Base {

/// Blocks signals for the calling thread while it exists. A thread that is created in the scope
/// inherits the mask and keeps it.
///
/// Signals that report a fault of the thread itself are not blocked: if they were, a fault would
/// end the process without its handler.
/// @par Thread safety
/// Belongs to the thread that made it. Nests.
class BlockedSignals
{
public:
    BlockedSignals()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS}) {
            sigdelset(&blocked, fault);
        }
        pthread_sigmask(SIG_SETMASK, &blocked, &before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t before{};
};

}  // namespace Tolvex::Base
