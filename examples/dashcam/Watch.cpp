#include "examples/dashcam/Watch.h"

namespace Dashcam {

using namespace std::chrono_literals;

constexpr auto longestPass = 3s;  ///< of a worker that does not hang

void Watch::Run()
try {
    ThreadSleep(1000ms, 50ms);
    if (!IsRunning()) {
        return;  // what it removed now would still be on the page
    }
    FollowDisk();
    std::string names;
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        const bool failed = worker.state == Tolvex::Interfaces::WorkerState::Failed;
        // This pass is the watch's own: it has waited, and it looks now.
        if (failed || (worker.worker != this && worker.runningPass > longestPass)) {
            names += ' ' + worker.name + (failed ? " (has no thread)" : "");
        }
    }
    if (names != named) {
        LogLine(LogType::Warning, LogModule::Event)
            << (names.empty() ? "all workers work again" : "these workers do not work:" + names);
        named = names;
    }
    folder.MakeRoom(0);
} catch (const std::exception&) {
    // Without memory this look is lost. The next one follows in a second.
}

/// Without its disk the log would go to a file under the mount point.
void Watch::FollowDisk()
{
    if (std::exchange(wasAway, folder.IsAway()) == wasAway) {
        return;
    }
    auto* const logger = Tolvex::Ilog::Logger::GetInstance();
    if (wasAway) {
        logger->CloseFile();
        return;
    }
    logger->EnableFile(folder.Path("dashcam.log"));
    logger->SaveLastLines(folder.Path("away.log"));
    LogLine(LogType::Warning, LogModule::Event)
        << "the disk was away: away.log has the last lines of that time";
}

}  // namespace Dashcam
