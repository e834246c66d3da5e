#include "Tolvex/Util/IAsync.h"

#include <utility>

#include "Tolvex/Util/PosixThread.h"
#include "Tolvex/Util/Sleep.h"

namespace Tolvex::Util {

IAsync::IAsync(const std::chrono::milliseconds& waitingTime, std::function<void(IAsync*)> work,
               void* context)
    : delay(waitingTime), userData(context)
{
    // Required: copied into place, so the creator's functor is copied, never moved from.
    callback = work;  // NOLINT(performance-unnecessary-value-param)

    pthread_t thread = 0;
    // Required: a failure is silent; the object then stays alive without a thread.
    StartDetachedThread(thread, nullptr, RunThread, this);
}

void* IAsync::RunThread(void* self)
{
    auto* async = static_cast<IAsync*>(self);
    SleepFor(async->delay);
    // The callback usually deletes the object; called from here, it outlives that, captures and
    // all.
    const std::function<void(IAsync*)> work = std::move(async->callback);
    work(async);
    // Nothing may touch the object from here on.
    return nullptr;
}

}  // namespace Tolvex::Util
