#include "Tolvex/Util/TemperatureMonitor.h"

#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <unistd.h>

#include "Tolvex/Base/Private/BlockedSignals.h"
#include "Tolvex/Base/Private/Descriptor.h"
#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Util {

namespace {

constexpr char thermalZone[] = "/sys/devices/virtual/thermal/thermal_zone0/temp";
constexpr int refreshMilliseconds = 60000;
constexpr int refreshStackBytes = 16384;

/// Reads two characters and adds a terminator. @return true if there was at least one character.
bool ReadFirstCharacters(char (&text)[3])
{
    const Base::Descriptor zone(open(thermalZone, O_RDONLY | O_CLOEXEC));
    if (!zone.IsOpen()) {
        return false;
    }

    const ssize_t length = read(zone.Get(), text, 2);
    if (length < 1) {
        return false;
    }
    text[length] = '\0';
    return true;
}

}  // namespace

/// Tells a refresh whether the monitor still exists. Shared with the timer's callback.
struct TemperatureMonitor::Gate
{
    std::mutex mutex;             ///< held during a refresh
    TemperatureMonitor* monitor;  ///< null: destroyed
};

TemperatureMonitor* TemperatureMonitor::instance = nullptr;

void TemperatureMonitor::Start()
{
    if (Base::LoadShared(instance) != nullptr) {
        return;
    }
    auto made = std::make_unique<TemperatureMonitor>();
    if (Base::SetSharedOnce(instance, made.get())) {
        static_cast<void>(made.release());  // never deleted
    }
}

TemperatureMonitor* TemperatureMonitor::GetInstance()
{
    Start();
    return Base::LoadShared(instance);
}

TemperatureMonitor::TemperatureMonitor() : gate(std::make_shared<Gate>())
{
    ReadTemperature();

    gate->monitor = this;
    const auto refresh = [shared = gate](Timer* source) {
        // glibc 2.36 starts this thread with every signal blocked, also those that report a fault;
        // the mask of the thread that creates the timer has no influence. Here the faults are
        // unblocked again, and with any other C library the other signals are blocked.
        const Base::BlockedSignals noHandlers;
        const std::lock_guard lock(shared->mutex);
        if (shared->monitor != nullptr) {
            shared->monitor->Tick(source);
        }
    };
    timer = new Timer(refreshMilliseconds, refresh, nullptr, refreshStackBytes);
}

TemperatureMonitor::~TemperatureMonitor()
{
    delete timer;

    const std::lock_guard lock(gate->mutex);
    gate->monitor = nullptr;
}

void TemperatureMonitor::Tick(Timer*)
{
    ReadTemperature();
}

int TemperatureMonitor::ReadTemperature()
{
    const Base::NoCancellation scope;  // Loggers call it on threads that may be cancelled.
    char text[3] = {};
    if (!ReadFirstCharacters(text)) {
        Base::StoreShared(available, false);
        return GetTemperature();
    }

    Base::StoreShared(available, true);
    // Required: takes the first two characters of a number of thousandths for the degrees. This is
    // correct only from 10 to 99 degrees.
    Base::StoreShared(temperature, std::atoi(text));
    return GetTemperature();
}

}  // namespace Tolvex::Util
