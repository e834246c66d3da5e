/// @file
/// A replacement for the kernel's thermal zone, at its real path.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Namespaces.h"

namespace Tolvex::Support {

/// The thermal zone that the library reads, private to this test program.
///
/// At first there is no zone. Begin a test with `if (!ThermalZone::Enter()) { GTEST_SKIP() <<
/// ThermalZone::whyNot; }`.
class ThermalZone
{
public:
    static constexpr char whyNot[] = "needs the right to mount: mounts over /sys/devices/virtual";

    /// Mounts an empty file system over /sys/devices/virtual in a private mount namespace, once per
    /// process. See EnterPrivateMountNamespace().
    static bool Enter()
    {
        static const bool entered =
            EnterPrivateMountNamespace() && MountEmptyDirectory("/sys/devices/virtual");
        if (entered) {
            Remove();
        }
        return entered;
    }

    /// @return whether Enter() works here. A child process tries it: the root of a container may
    /// have no right to mount.
    static bool MayEnter()
    {
        return RunInChild([] { return Enter() ? 0 : 1; }).Succeeded();
    }

    /// Writes text to the zone's file.
    static void Write(const std::string& text)
    {
        Remove();
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << text;
        ASSERT_EQ(std::filesystem::file_size(path), text.size());
    }

    /// Puts a directory where the file should be.
    static void MakeDirectory()
    {
        Remove();
        ASSERT_TRUE(std::filesystem::create_directories(path));
    }

    /// Removes the zone.
    static void Remove() { std::filesystem::remove_all("/sys/devices/virtual/thermal"); }

    static constexpr char path[] = "/sys/devices/virtual/thermal/thermal_zone0/temp";
};

}  // namespace Tolvex::Support
