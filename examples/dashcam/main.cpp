// tolvex-dashcam: an in-vehicle camera on top of the library. README.md tells the rest.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <unistd.h>

#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/Timer.h"

#include "examples/dashcam/Drive.h"

namespace {

using Tolvex::Ilog::Logger;
using Tolvex::Util::Timer;

constexpr int timerStackBytes = 65536;
constexpr std::uint64_t logBytes = 1000000;
constexpr unsigned logFilesKept = 2;
constexpr std::size_t blackBoxLines = 30;

/// Starts the log: a file in the folder of the clips, and a black box with its last lines.
void StartLog(const std::string& folder)
{
    std::error_code ignored;  // without a folder there is no log, but a drive
    std::filesystem::create_directories(folder, ignored);
    Logger* const logger = Logger::GetInstance();
    logger->SetFileSizeLimit(logBytes, logFilesKept);
    logger->SetFileDurability(Tolvex::Ilog::LogDurability::IgnitionOff);
    logger->EnableBlackBox(blackBoxLines);
    logger->EnableFile(folder + "/dashcam.log");
}

/// Blocks the signals that the main thread waits for, in all threads that it starts.
sigset_t BlockSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1}) {
        sigaddset(&signals, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/// Returns when the ignition goes off.
void DriveOn(Dashcam::Drive& drive, const sigset_t& signals)
{
    constexpr timespec betweenUpdates = {0, 200'000'000};
    for (int number = 0; number != SIGTERM && number != SIGINT;) {
        number = sigtimedwait(&signals, nullptr, &betweenUpdates);
        if (number == SIGUSR1) {
            drive.PressButton();
        }
        drive.UpdateDisplay();
    }
}

int Run(int argc, char** argv)
{
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
    app.add_option("--acceleration", options.acceleration,
                   "File or FIFO with a sample \"X Y Z\" on each line: raw numbers, -128 to 127");
    app.add_option("--settings", options.settings, "JSON file; see settings.json");
    app.add_option("--folder", options.folder, "Where the clips go")->capture_default_str();
    app.add_option("--seconds", options.seconds,
                   "Length of the drive; 0: until the ignition is off")
        ->check(CLI::Range(0, 86400))
        ->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t signals = BlockSignals();
    StartLog(options.folder);
    // Never destroyed, see Drive. Static, so that leak checkers find it.
    static Dashcam::Drive& drive = *new Dashcam::Drive(options);
    const auto switchOff = [](Timer*) { kill(getpid(), SIGTERM); };
    const Timer ignition(options.seconds * 1000, switchOff, nullptr, timerStackBytes);  // 0: never
    DriveOn(drive, signals);
    return drive.SwitchIgnitionOff() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "tolvex-dashcam: %s\n", failure.what());
        return 1;
    }
}
