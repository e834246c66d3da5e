#include "Tolvex/Util/Tick.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <pthread.h>

#include "Tolvex/Util/NoCancellation.h"
#include "Tolvex/Util/Sleep.h"

namespace Tolvex::Util {
namespace {

constexpr std::chrono::milliseconds tickPeriod(1000);

constinit std::mutex creationMutex;  // guards Tick::instance while it is created
constinit std::atomic<bool> forkIsHandled = false;

/// A thread of the parent that was making the tick does not exist in the child.
void RenewInChild()
{
    new (&creationMutex) std::mutex;
}

}  // namespace

Tick* Tick::instance = nullptr;

void Tick::Start()
{
    if (LoadShared(instance) != nullptr) {
        return;
    }

    if (!forkIsHandled.exchange(true)) {
        pthread_atfork(nullptr, nullptr, RenewInChild);  // Best effort
    }
    const NoCancellation scope;  // An instance whose start was left half done would never tick.
    if (Tick* const created = CreateInstance(); created != nullptr) {
        // Without the mutex: the start is logged, and that waits for whoever composes a line.
        created->IThread::Start();
    }
}

Tick* Tick::CreateInstance()
{
    const std::lock_guard<std::mutex> lock(creationMutex);
    if (LoadShared(instance) != nullptr) {
        return nullptr;  // GCOV_EXCL_LINE: two first calls, both past the check before the lock
    }
    StoreShared(instance, new Tick(Idle()));
    return instance;
}

Tick* Tick::GetInstance()
{
    Start();
    return LoadShared(instance);
}

Tick::Tick() : Tick(Idle())
{
    IThread::Start();
}

Tick::Tick(Idle /*notStarted*/)
{
    SetThreadName("Tick");
}

Tick::~Tick()
{
    StopBeforeDestruction();
}

void Tick::Run()
{
    // Required: the count falls behind by what each pass takes besides its sleep of a second.
    SleepFor(tickPeriod);
    StoreShared(tickCount, LoadShared(tickCount) + 1);
}

}  // namespace Tolvex::Util
