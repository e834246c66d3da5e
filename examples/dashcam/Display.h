#pragma once

#include <string>

#include "examples/dashcam/Capture.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {

/// Shows how the drive is going: a line that updates itself on a terminal, now and then a plain
/// line anywhere else.
/// @par Thread safety
/// Caller serialises.
class Display
{
public:
    /// All must outlive the display.
    Display(const Capture& capture, const Recorder& recorder, const Clips& clips);

    /// Shows the present state. To be called a few times a second.
    void Update();
    /// Leaves the line, so that what follows is below it.
    void End();

private:
    std::string Line() const;

    const Capture& capture;
    const Recorder& recorder;
    const Clips& clips;
    const bool isTerminal;
    Moment nextPlainLine;
};

}  // namespace Dashcam
