// tolvex-dashcam: an in-vehicle camera on top of the library. README.md tells the rest.
#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <tuple>
#include <unistd.h>

#include "examples/dashcam/Capture.h"
#include "examples/dashcam/ClipFiles.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Watch.h"

namespace Dashcam {
namespace {

using namespace std::chrono_literals;
using Tolvex::Ilog::Logger;
using Tolvex::Util::DriveEnd;
using Tolvex::Util::TemperatureMonitor;
using Tolvex::Util::Timer;

/// What the user can choose at the start.
struct Options
{
    std::string camera;        ///< empty: none
    std::string file;          ///< empty: none
    std::string acceleration;  ///< file or FIFO; empty: none
    std::string settings;      ///< empty: defaults
    std::string folder = "dashcam-clips";
    int seconds = 30;  ///< 0: until a signal
};

/// One drive, from ignition on to ignition off: all parts of the camera, and how they are
/// connected.
///
/// Never destroyed: what hangs at ignition off may use it until the process ends.
/// @par Thread safety
/// Caller serialises.
class Drive : private Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// Makes all parts, logs how the last drive ended, and starts all workers.
    explicit Drive(const Options& options);

    /// The driver has pressed the button.
    void PressButton() { clips.Raise("button", 0.0); }
    /// Shows how the drive is going, to be called a few times a second: a line that updates itself
    /// on a terminal, now and then a plain line anywhere else.
    void UpdateDisplay();
    /// Runs the ignition-off sequence, then prints what the drive has left.
    /// @return false when no picture was ever taken.
    bool SwitchIgnitionOff();

private:
    /// The drive is a participant of its own sequence: it writes the summary.
    void RunIgnitionOff() override;
    void TellLastDrive();
    std::string DisplayLine() const;

    const Settings settings;
    Folder folder;
    Tolvex::Interfaces::IgnitionOffSequence sequence;
    Recorder recorder;
    Accelerometer accelerometer;
    Clips clips;
    Capture capture;
    Watch watch;
    const std::time_t begin = std::time(nullptr);
    const bool isTerminal = isatty(STDOUT_FILENO) != 0;  ///< where the display is
    Moment nextPlainLine;
};

Drive::Drive(const Options& options)
    : settings(ReadSettings(options.settings)),
      folder(options.folder, settings),
      sequence(folder.Path("drive")),
      recorder(settings),
      accelerometer(settings, options.acceleration),
      clips(settings, recorder, accelerometer, folder),
      capture(settings, recorder, options.camera, options.file),
      watch(folder)
{
    accelerometer.AddCallback(&clips);
    if (!sequence.GetErrorText().empty()) {
        LogLine(LogType::Error, LogModule::Event) << "ignition off: " << sequence.GetErrorText();
    }
    // The log is the last: it takes the lines of the others.
    const std::tuple<const char*, IgnitionOffMode*, std::chrono::seconds> participants[] = {
        {"Capture", &capture, 2s}, {"Clips", &clips, 5s}, {"Accelerometer", &accelerometer, 1s},
        {"Watch", &watch, 1s},     {"Summary", this, 2s}, {"Log", Logger::GetInstance(), 3s}};
    for (const auto& [name, participant, budget] : participants) {
        if (!sequence.Add(name, participant, budget)) {
            LogLine(LogType::Error, LogModule::Event)
                << "ignition off without " << name << ": " << sequence.GetErrorText();
        }
    }
    if (settings.key == Settings().key) {
        LogLine(LogType::Warning, LogModule::CONFIG) << "clips are signed with the example's key";
    }
    TellLastDrive();
    folder.ClearLeftovers();

    TemperatureMonitor::Start();
    clips.Start();
    capture.Start();
    if (!options.acceleration.empty()) {
        accelerometer.Start();
    }
    watch.Start();  // names the workers that have no thread
    if (!watch.IsRunning()) {
        LogLine(LogType::Error, LogModule::Event) << "no thread for the watch";
    }
}

void Drive::TellLastDrive()
{
    const Tolvex::Util::DriveRecord& last = sequence.GetLastDrive();
    if (last.end == DriveEnd::Died || last.end == DriveEnd::Unreadable) {
        std::cout << "The last drive died: it crashed, was killed, or lost its power." << std::endl;
        LogLine(LogType::Error, LogModule::Event) << "the last drive died";
    } else if (last.end != DriveEnd::None) {
        LogLine(LogType::Info, LogModule::Event) << "the last drive ended properly";
    }
    for (const std::string& name : last.overran) {
        LogLine(LogType::Warning, LogModule::Event) << name << " took too long at its end";
    }
}

std::string Drive::DisplayLine() const
{
    const Clips::Count count = clips.Counted();
    std::ostringstream line;
    line << Tolvex::Util::NewDate("%H:%M:%S") << "  " << capture.Frames() << " frames";
    if (capture.Lost() != 0) {
        line << " (" << capture.Lost() << " lost)";
    }
    line << "  ring " << recorder.Fill() << " %  ";
    if (TemperatureMonitor::GetInstance()->GetTemperatureAvailable()) {
        line << TemperatureMonitor::GetInstance()->GetTemperature() << " C  ";
    }
    line << count.last;
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
    const auto milliseconds = (Clock::now() - start) / 1ms;

    // All files are written; a blocked terminal does no harm now.
    std::cout << (isTerminal ? "" : DisplayLine()) << '\n';
    const Clips::Count count = clips.Counted();
    for (const std::string& name : sequence.GetOverrun()) {
        std::cout << name << " hangs and was left behind.\n";
    }
    std::cout << count.written << (count.written == 1 ? " clip" : " clips") << " in "
              << folder.Path("") << "\n";
    if (count.Unfinished() != 0) {
        std::cout << count.Unfinished() << " not written yet\n";
    }
    if (count.lost != 0) {
        std::cout << count.lost << " lost: see " << folder.Path("dashcam.log") << '\n';
    }
    std::cout << "Page: " << folder.Path("index.html") << "\nIgnition off took " << milliseconds
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
    drive["eventsThatProlonged"] = count.prolonged;
    drive["clipsWritten"] = count.written;
    drive["clipsLost"] = count.lost;
    drive["clipsUnfinished"] = count.Unfinished();
    drive["samplesSkipped"] = static_cast<int>(accelerometer.Skipped());
    const std::string text = Tolvex::Json::SerializeStandard(drive);
    LogLine(LogType::Notice, LogModule::Event) << "drive: " << text;
    folder.Write("drive.json", text + '\n');
}

/// Starts the log: a file in the folder of the clips, and a black box with its last lines.
void StartLog(const std::string& folder)
{
    constexpr std::uint64_t bytes = 1000000;
    constexpr unsigned filesKept = 2;
    constexpr std::size_t blackBoxLines = 30;
    std::error_code ignored;  // without a folder there is no log, but a drive
    std::filesystem::create_directories(folder, ignored);
    Logger* const logger = Logger::GetInstance();
    logger->SetFileSizeLimit(bytes, filesKept);
    logger->SetFileDurability(Tolvex::Ilog::LogDurability::IgnitionOff);
    logger->EnableBlackBox(blackBoxLines);
    logger->EnableFile(folder + "/dashcam.log");
}

/// Drives until the ignition goes off. @return false when no picture was ever taken.
bool DriveWith(const Options& options)
{
    constexpr timespec betweenUpdates = {0, 200'000'000};
    constexpr int timerStackBytes = 65536;
    // All threads that are started here block the signals that this one waits for.
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    StartLog(options.folder);
    const auto switchOff = [main = pthread_self()](Timer*) { pthread_kill(main, SIGINT); };
    const Timer ignition(options.seconds * 1000, switchOff, nullptr, timerStackBytes);  // 0: never
    if (options.seconds != 0 && !ignition.GetErrorText().empty()) {
        throw Tolvex::IException("--seconds: the timer cannot be created");
    }
    // Never destroyed, see Drive. Static, so that leak checkers find it.
    static Drive& drive = *new Drive(options);
    for (int number = 0; number != SIGTERM && number != SIGINT;) {
        number = sigtimedwait(&signals, nullptr, &betweenUpdates);
        try {
            if (number == SIGUSR1) {
                drive.PressButton();
            }
            drive.UpdateDisplay();
        } catch (const std::exception&) {
            // Without memory an event or a look at the display is lost, but not the ignition off.
        }
    }
    return drive.SwitchIgnitionOff();
}

}  // namespace
}  // namespace Dashcam

int main(int argc, char** argv)
{
    try {
        Dashcam::Options options;
        CLI::App app(
            "An in-vehicle camera: keeps the last seconds, and makes a clip of every event.\n"
            "SIGUSR1 is the driver's button; SIGTERM and SIGINT switch the ignition off.");
        // The last one counts: scripts/dashcam gives some of its own.
        app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        auto* const camera =
            app.add_option("--camera", options.camera, "V4L2 camera, such as /dev/video0");
        app.add_option("--file", options.file, "Video file, in a loop, instead of the test picture")
            ->check(CLI::ExistingFile)
            ->excludes(camera);
        app.add_option(
            "--acceleration", options.acceleration,
            "File or FIFO with a sample \"X Y Z\" on each line: raw numbers, -128 to 127");
        app.add_option("--settings", options.settings, "JSON file; see settings.json");
        app.add_option("--folder", options.folder, "Where the clips go")->capture_default_str();
        app.add_option("--seconds", options.seconds,
                       "Length of the drive; 0: until the ignition is off")
            ->check(CLI::Range(0, 86400))
            ->capture_default_str();
        CLI11_PARSE(app, argc, argv);
        return Dashcam::DriveWith(options) ? 0 : 1;
    } catch (const std::exception& failure) {
        std::cerr << "tolvex-dashcam: " << failure.what() << '\n';
        return 1;
    }
}
