#pragma once

#include <ctime>
#include <string>

#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Capture.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/Settings.h"

namespace Dashcam {

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

/// The worker that looks after the others and after the folder, once a second.
/// @par Thread safety
/// Controlling thread.
class Watch : public Tolvex::Interfaces::IThread, public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// @param clips  Must outlive the worker.
    explicit Watch(Folder& clips) : folder(clips) { SetThreadName("Watch"); }

    /// Looks no more.
    void RunIgnitionOff() override { Stop(); }

protected:
    void Run() override;

private:
    Folder& folder;
    std::string hanging;  ///< the workers that the log has named already
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
    /// Ends all, in order and in time, and tells the user what there is.
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
    const std::time_t begin;
    const bool isTerminal;  ///< where the display is
    Moment nextPlainLine;
};

}  // namespace Dashcam
