#include "Tolvex/Base/Private/PosixThread.h"

#include <csignal>
#include <optional>

namespace Tolvex::Base {

namespace {

/// Blocks signals for the calling thread while it exists. A thread created meanwhile inherits that.
class BlockedSignals
{
public:
    BlockedSignals()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        // A blocked signal that reports a fault would end the process without its handler.
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

}  // namespace

int StartDetachedThread(pthread_t& handle, const char* name, void* (*entry)(void*), void* argument,
                        SignalHandlers handlers)
{
    std::optional<BlockedSignals> blockedSignals;
    if (handlers == SignalHandlers::Blocked) {
        blockedSignals.emplace();
    }

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, workerStackBytes);

    // Required: the attribute object is not destroyed. It holds no memory of its own.
    pthread_t created = 0;
    if (const int error = pthread_create(&created, &attributes, entry, argument); error != 0) {
        return error;
    }

    handle = created;
    // Named before it is detached: a detached thread may be gone, and its handle with it.
    if (name != nullptr && *name != '\0') {
        // Required: a name of more than 15 characters is refused in silence and leaves none.
        pthread_setname_np(created, name);
    }
    pthread_detach(created);
    return 0;
}

}  // namespace Tolvex::Base
