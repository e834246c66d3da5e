#include "examples/dashcam/Watch.h"

namespace Dashcam {

using namespace std::chrono_literals;

void Watch::Run()
try {
    ThreadSleep(1000ms, 50ms);
    std::string names;
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        const bool failed = worker.state == Tolvex::Interfaces::WorkerState::Failed;
        if (failed || (worker.worker != this && worker.runningPass > 3s)) {
            names += ' ' + worker.name + (failed ? " (has no thread)" : "");
        }
    }
    if (names != hanging) {
        LogLine(LogType::Warning, LogModule::Event)
            << (names.empty() ? "no worker hangs any more" : "these workers hang:" + names);
        hanging = names;
    }
    folder.MakeRoom(0);
} catch (const std::exception&) {
    // Without memory this look is lost. The next one follows in a second.
}

}  // namespace Dashcam
