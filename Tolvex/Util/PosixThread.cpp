#include "Tolvex/Util/PosixThread.h"

namespace Tolvex::Util {

int StartDetachedThread(pthread_t& handle, const char* name, void* (*entry)(void*), void* argument)
{
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

}  // namespace Tolvex::Util
