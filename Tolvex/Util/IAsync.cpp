#include "Tolvex/Util/IAsync.h"

#include "Tolvex/Base/Private/PosixThread.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Util {

IAsync::IAsync(const std::chrono::milliseconds& waitingTime, std::function<void(IAsync*)> work,
               void* context)
    : delay(waitingTime), userData(context)
{
    // Required: the callback is copied, not moved.
    callback = work;  // NOLINT(performance-unnecessary-value-param)

    pthread_t thread = 0;
    // Required: if the thread cannot be created, this is not reported, and the object leaks.
    Base::StartDetachedThread(thread, nullptr, RunThread, this);
}

void* IAsync::RunThread(void* self)
{
    auto* async = static_cast<IAsync*>(self);
    Base::SleepFor(async->delay);
    // A copy: the callback usually deletes the object, and its captures must outlive that.
    const std::function<void(IAsync*)> work = async->callback;
    work(async);
    // The object may not be touched here: the callback may have deleted it.
    return nullptr;
}

}  // namespace Tolvex::Util
