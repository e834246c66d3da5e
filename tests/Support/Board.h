/// @file
/// The emulated board (docs/device.md), seen from a program on it.
#pragma once

#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Tolvex::Support {

/// @return whether this is the emulated board.
inline bool IsOnBoard()
{
    std::string model;
    std::getline(std::ifstream("/proc/device-tree/model"), model, '\0');
    return model == "Tolvex test board";
}

/// A test that skips except on the emulated board.
class OnBoardTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!IsOnBoard()) {
            GTEST_SKIP() << "needs the emulated board: scripts/device";
        }
    }
};

/// Gives the emulator's monitor a command, such as "set_link net off". The monitor is at the first
/// serial line. Does not wait for the effect of the command.
/// @return false when the command cannot be written.
[[nodiscard]] inline bool TellEmulator(const std::string& command)
{
    const std::string line = command + "\r";
    const int monitor = open("/dev/ttymxc0", O_WRONLY | O_NOCTTY | O_CLOEXEC);
    const bool told = write(monitor, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    close(monitor);
    return told;
}

}  // namespace Tolvex::Support
