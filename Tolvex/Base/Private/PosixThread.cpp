#include "Tolvex/Base/Private/PosixThread.h"

#include <optional>

#include "Tolvex/Base/Private/BlockedSignals.h"

namespace Tolvex::Base {

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

    // Required: the attribute object is not destroyed. It owns no memory.
    pthread_t created = 0;
    if (const int error = pthread_create(&created, &attributes, entry, argument); error != 0) {
        return error;
    }

    handle = created;
    // Named before it is detached: the handle of a detached thread may already be invalid.
    if (name != nullptr && *name != '\0') {
        // Best effort: a name of more than 15 characters leaves the thread unnamed.
        pthread_setname_np(created, name);
    }
    pthread_detach(created);
    return 0;
}

}  // namespace Tolvex::Base
