#include "examples/dashcam/Drive.h"

#include <iostream>
#include <poll.h>
#include <sstream>
#include <unistd.h>

#include "Tolvex/Interfaces/WorkerHealth.h"
#include "Tolvex/Json/Standard.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

#include "examples/dashcam/SideFile.h"

namespace Dashcam {

using namespace std::chrono_literals;
using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Tolvex::Util::DriveEnd;

void Watch::Run()
{
    std::string names;
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        if (worker.worker != this && worker.runningPass > 3s) {
            names += ' ' + worker.name;
        }
    }
    if (names != hanging) {
        LogLine(LogType::Warning, LogModule::Event)
            << (names.empty() ? "no worker hangs any more" : "these workers hang:" + names);
        hanging = names;
    }
    folder.MakeRoom(0);
    ThreadSleep(1000ms, 50ms);
}

Drive::Drive(const Options& options)
    : settings(ReadSettings(options.settings)),
      folder(options.folder, settings),
      sequence(folder.Path("drive")),
      recorder(settings),
      accelerometer(settings, options.acceleration),
      clips(settings, recorder, accelerometer, folder),
      capture(settings, recorder, options.camera, options.file),
      watch(folder),
      begin(std::time(nullptr)),
      isTerminal(isatty(STDOUT_FILENO) != 0)
{
    accelerometer.AddCallback(&clips);
    // The log is the last: it takes the lines of the others.
    sequence.Add("Capture", &capture, 2s);
    sequence.Add("Clips", &clips, 5s);
    sequence.Add("Accelerometer", &accelerometer, 1s);
    sequence.Add("Watch", &watch, 1s);
    sequence.Add("Summary", this, 2s);
    sequence.Add("Log", Tolvex::Ilog::Logger::GetInstance(), 3s);
    if (settings.key == Settings().key) {
        LogLine(LogType::Warning, LogModule::CONFIG) << "clips are signed with the example's key";
    }
    TellLastDrive();
    folder.ClearLeftovers();

    Tolvex::Util::TemperatureMonitor::Start();
    clips.Start();
    capture.Start();
    if (!options.acceleration.empty()) {
        accelerometer.Start();
    }
    watch.Start();
}

void Drive::TellLastDrive()
{
    const Tolvex::Util::DriveRecord& last = sequence.GetLastDrive();
    if (last.end == DriveEnd::Died || last.end == DriveEnd::Unreadable) {
        std::cout << "The last drive died: it crashed, was killed, or lost its power." << std::endl;
        LogLine(LogType::Error, LogModule::Event) << "the last drive died";
    } else {
        LogLine(LogType::Info, LogModule::Event)
            << (last.end == DriveEnd::None ? "the first drive" : "the last drive ended properly");
    }
    for (const std::string& name : last.overran) {
        LogLine(LogType::Warning, LogModule::Event) << name << " took too long at its end";
    }
}

std::string Drive::DisplayLine() const
{
    const Clips::Count count = clips.Counted();
    auto* const monitor = Tolvex::Util::TemperatureMonitor::GetInstance();
    std::ostringstream line;
    line << Tolvex::Util::NewDate("%H:%M:%S") << "  " << capture.Frames() << " frames";
    if (capture.Lost() != 0) {
        line << " (" << capture.Lost() << " lost)";
    }
    line << "  ring " << recorder.Fill() << " %  ";
    if (monitor->GetTemperatureAvailable()) {
        line << monitor->GetTemperature() << " C  ";
    }
    line << (count.last.empty() ? "no event yet" : count.last);
    return line.str();
}

void Drive::UpdateDisplay()
{
    constexpr auto betweenPlainLines = 5s;
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) <= 0) {
        return;  // Ctrl-S blocks writes to the terminal; the drive must not wait for it
    }
    if (isTerminal) {
        // A line that is too long ends at the edge of the terminal.
        std::cout << "\r\033[?7l" << DisplayLine() << "\033[K\033[?7h" << std::flush;
    } else if (Clock::now() >= nextPlainLine) {
        std::cout << DisplayLine() << std::endl;
        nextPlainLine = Clock::now() + betweenPlainLines;
    }
}

bool Drive::SwitchIgnitionOff()
{
    const Moment start = Clock::now();
    sequence.RunIgnitionOff();
    const auto length = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);

    // All files are written; a blocked terminal does no harm now.
    std::cout << (isTerminal ? "" : DisplayLine()) << '\n';
    const Clips::Count count = clips.Counted();
    for (const std::string& name : sequence.GetOverrun()) {
        std::cout << name << " hangs and was left behind.\n";
    }
    std::cout << count.written << (count.written == 1 ? " clip" : " clips") << " in "
              << folder.Path("") << "\n";
    if (count.lost != 0) {
        std::cout << count.lost << " lost: see " << folder.Path("dashcam.log") << '\n';
    }
    std::cout << "Page: " << folder.Path("index.html") << "\nIgnition off took " << length.count()
              << " ms." << std::endl;
    return capture.Frames() != 0;
}

void Drive::RunIgnitionOff()
{
    const Clips::Count count = clips.Counted();
    Tolvex::Json::Object drive;
    drive["begin"] = Tolvex::Util::DateISO(begin);
    drive["end"] = Tolvex::Util::DateISO(std::time(nullptr));
    drive["clockPlausible"] = IsPlausible(begin);
    drive["frames"] = static_cast<int>(capture.Frames());
    drive["framesLost"] = static_cast<int>(capture.Lost());
    drive["events"] = count.events;
    drive["clipsWritten"] = count.written;
    drive["clipsLost"] = count.lost;
    drive["samplesSkipped"] = static_cast<int>(accelerometer.Skipped());
    const std::string text = Tolvex::Json::SerializeStandard(drive);
    LogLine(LogType::Notice, LogModule::Event) << "drive: " << text;
    folder.Write("drive.json", text + '\n');
}

}  // namespace Dashcam
