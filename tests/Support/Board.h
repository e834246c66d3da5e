/// @file
/// The emulated board (docs/device.md), seen from a program on it.
#pragma once

#include <fcntl.h>
#include <fstream>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Tolvex::Support {

/// @return whether this is the emulated board. A test for it begins with `if (!IsOnBoard()) {
/// GTEST_SKIP() << notOnBoard; }`.
inline bool IsOnBoard()
{
    std::string model;
    std::getline(std::ifstream("/proc/device-tree/model"), model, '\0');
    return model == "Tolvex test board";
}

constexpr char notOnBoard[] = "needs the emulated board: scripts/device";

/// Gives the emulator's monitor a command, such as "set_link net off". The monitor is at the first
/// serial line. Its effect is to be waited for.
inline void TellEmulator(const std::string& command)
{
    const std::string line = command + "\r";
    const int monitor = open("/dev/ttymxc0", O_WRONLY | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(write(monitor, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    close(monitor);
}

}  // namespace Tolvex::Support
