#include "Tolvex/Util/Tick.h"

#include <chrono>
#include <memory>

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
    const Base::NoCancellation
        scope;  // An instance whose start was left half done would never tick.
    std::unique_ptr<Tick> made(new Tick(Idle()));
    if (Base::SetSharedOnce(instance, made.get())) {
        made.release()->IThread::Start();  // never deleted
    }
}

Tick* Tick::GetInstance()
{
    Start();
    return Base::LoadShared(instance);
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
    Base::SleepFor(tickPeriod);
    Base::StoreShared(tickCount, Base::LoadShared(tickCount) + 1);
}

}  // namespace Tolvex::Util
