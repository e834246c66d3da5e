#include "examples/dashcam/Display.h"

#include <iostream>
#include <poll.h>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/UtilTime.h"

namespace Dashcam {
namespace {

constexpr std::chrono::seconds betweenPlainLines(5);

/// @return the width of the terminal in characters.
std::size_t Columns()
{
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Display::Display(const Capture& worker, const Recorder& ring, const Clips& events)
    : capture(worker), recorder(ring), clips(events), isTerminal(isatty(STDOUT_FILENO) != 0)
{
}

std::string Display::Line() const
{
    Tolvex::Util::TemperatureMonitor* const monitor =
        Tolvex::Util::TemperatureMonitor::GetInstance();
    const Clips::Count count = clips.Counted();
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

void Display::Update()
{
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) <= 0) {
        return;  // Ctrl-S blocks writes to the terminal; the drive must not wait for it
    }
    if (isTerminal) {
        std::cout << '\r' << Line().substr(0, Columns() - 1) << "\033[K" << std::flush;
    } else if (Clock::now() >= nextPlainLine) {
        std::cout << Line() << std::endl;
        nextPlainLine = Clock::now() + betweenPlainLines;
    }
}

void Display::End()
{
    std::cout << (isTerminal ? "\n" : Line() + '\n') << std::flush;
}

}  // namespace Dashcam
