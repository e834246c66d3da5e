#include "examples/dashcam/Watch.h"

#include <chrono>

#include "Tolvex/Interfaces/WorkerHealth.h"
#include "Tolvex/Log/LogLine.h"

namespace Dashcam {

using namespace std::chrono_literals;

Watch::Watch(Folder& clips) : folder(clips)
{
    SetThreadName("Watch");
}

void Watch::Run()
{
    NameTheHanging();
    folder.KeepLimits();
    ThreadSleep(1000ms, 50ms);
}

void Watch::NameTheHanging()
{
    std::string names;
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        if (worker.worker != this && worker.runningPass > 3s) {
            names += ' ' + worker.name;
        }
    }
    if (names != hanging) {
        Tolvex::Ilog::LogLine(Tolvex::Ilog::LogType::Warning, Tolvex::LogModule::Event)
            << (names.empty() ? "no worker hangs any more" : "these workers hang:" + names);
        hanging = names;
    }
}

}  // namespace Dashcam
