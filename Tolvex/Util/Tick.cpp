#include "Tolvex/Util/Tick.h"

#include <chrono>
#include <memory>

#include "Tolvex/Base/Private/BlockedSignals.h"
#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/Sleep.h"

namespace Tolvex::Util {
namespace {

constexpr std::chrono::milliseconds tickPeriod(1000);

}  // namespace

Tick* Tick::instance = nullptr;

void Tick::Start()
{
    if (Base::LoadShared(instance) != nullptr) {
        return;
    }
    // If a cancellation interrupted the start, the instance would never tick.
    const Base::NoCancellation scope;
    std::unique_ptr<Tick> made(new Tick(Idle()));
    if (Base::SetSharedOnce(instance, made.get())) {
        made.release()->StartCounting();  // never deleted
    }
}

Tick* Tick::GetInstance()
{
    Start();
    return Base::LoadShared(instance);
}

Tick::Tick() : Tick(Idle())
{
    StartCounting();
}

Tick::Tick(Idle /*notStarted*/)
{
    SetThreadName("Tick");
}

Tick::~Tick()
{
    StopBeforeDestruction();
}

void Tick::StartCounting()
{
    // The new thread inherits the mask, so it runs no signal handlers of the application.
    const Base::BlockedSignals scope;
    IThread::Start();
}

void Tick::Run()
{
    // Required: a relative sleep. So the count falls behind by the time that the rest of each pass
    // takes.
    Base::SleepFor(tickPeriod);
    Base::StoreShared(tickCount, Base::LoadShared(tickCount) + 1);
}

}  // namespace Tolvex::Util
