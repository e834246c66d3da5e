// The flash variables through the boot loader's real tools, on an environment in a file.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "Tolvex/Util/FlashUtils.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Namespaces.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using Tolvex::Support::ChildResult;
using Tolvex::Support::EnterPrivateMountNamespace;
using Tolvex::Support::MountEmptyDirectory;
using Tolvex::Support::ReadFile;
using Tolvex::Support::RunInChild;
using Tolvex::Util::ExecCmd_Pipe;
using Tolvex::Util::ExecCmd_System;
using Tolvex::Util::ReadFlashVar;
using Tolvex::Util::WriteFlashConfigFile;
using Tolvex::Util::WriteFlashVar;
namespace fs = std::filesystem;

constexpr std::size_t environmentBytes = 0x2000;
constexpr char configFile[] = "/etc/fw_env.config";

// ------------------------------------------------------------------------ the device of the tests

/// Reflected CRC-32, as in Ethernet.
std::uint32_t Crc32(const std::string& bytes)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

/// An environment as the boot loader writes it: checksum (little endian), "name=value" texts.
std::string Environment(std::string variables)
{
    variables.resize(environmentBytes - sizeof(std::uint32_t));
    std::string image;
    for (std::uint32_t crc = Crc32(variables), byte = 0; byte < sizeof crc; ++byte) {
        image += static_cast<char>(crc >> (8 * byte) & 0xFF);
    }
    return image + variables;
}

fs::path FindTool(const std::string& name)
{
    for (const char* folder : {"/sbin", "/usr/sbin", "/bin", "/usr/bin"}) {
        if (fs::exists(fs::path(folder) / name)) {
            return fs::path(folder) / name;
        }
    }
    return {};
}

/// Finds the tools of the system and copies them into an otherwise empty /sbin.
bool InstallTools()
{
    const fs::path staging = "/run";
    if (!MountEmptyDirectory(staging.c_str())) {
        return false;
    }
    for (const char* name : {"fw_printenv", "fw_setenv"}) {
        fs::copy_file(FindTool(name), staging / name);
    }
    return mount("/run", "/sbin", nullptr, MS_BIND, nullptr) == 0;
}

/// Reduces /dev to the null device and an environment of 8 KiB, to which /dev/mtd1 is a link. A
/// link, because the tools would read a plain file with the name of a flash device, but not write
/// it.
bool InstallFlash()
{
    if (!MountEmptyDirectory("/mnt")) {
        return false;
    }
    std::ofstream("/mnt/null").close();
    std::ofstream("/mnt/environment", std::ios::binary)
        << Environment(std::string("baudrate=115200\0bootdelay=1\0", 28));
    fs::create_symlink("environment", "/mnt/mtd1");
    return mount("/dev/null", "/mnt/null", nullptr, MS_BIND, nullptr) == 0 &&
           mount("/mnt", "/dev", nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

/// Sets up the device for the calling process: tools, flash, an empty /etc, a place for locks.
bool EnterDevice()
{
    if (!EnterPrivateMountNamespace() || !InstallTools() || !InstallFlash()) {
        return false;
    }
    fs::create_directories("/run/lock");  // where /var/lock leads on most systems
    return MountEmptyDirectory("/var/lock") && MountEmptyDirectory("/etc");
}

/// Runs work on a device of its own that has the configuration file.
template <typename Work>
ChildResult RunOnDevice(Work work)
{
    return RunInChild([&work] {
        EXPECT_TRUE(EnterDevice());
        EXPECT_EQ(WriteFlashConfigFile(), 0);
        if (!testing::Test::HasFailure()) {
            work();
        }
        return 0;
    });
}

class FlashVariablesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!RunInChild([] { return EnterPrivateMountNamespace() ? 0 : 1; }).Succeeded()) {
            GTEST_SKIP() << "needs the right to mount: mounts over /sbin, /dev and /etc";
        }
        if (FindTool("fw_printenv").empty() || FindTool("fw_setenv").empty()) {
            FAIL() << "fw_printenv or fw_setenv is missing: install libubootenv-tool";
        }
    }
};

// ----------------------------------------------------------------------------------------- tests

TEST_F(FlashVariablesTest, ConfigFileIsOneLineAndReplacesWhatWasThere)
{
    const ChildResult child = RunOnDevice([] {
        std::ofstream(configFile) << "/dev/mtd9 0 0x10000 0x10000\nsecond line\n";

        EXPECT_EQ(WriteFlashConfigFile(), 0);

        EXPECT_EQ(ReadFile(configFile), "/dev/mtd1   0x00000 0x2000  0x1000  2\n");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, ConfigFileThatCannotBeWrittenGivesTheShellsStatus)
{
    const ChildResult child = RunOnDevice([] {
        fs::remove(configFile);
        fs::create_directory(configFile);

        const int status = WriteFlashConfigFile();

        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_NE(WEXITSTATUS(status), 0);
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, TestsLeaveTheConfigFileOfTheSystemAlone)
{
    const bool existed = fs::exists(configFile);
    const std::string before = ReadFile(configFile);

    RunOnDevice([] {});

    EXPECT_EQ(fs::exists(configFile), existed);
    EXPECT_EQ(ReadFile(configFile), before);
}

TEST_F(FlashVariablesTest, VariableOfTheBootLoaderIsReadAndShownOnStandardOutput)
{
    const ChildResult child = RunOnDevice([] {
        std::string value;
        EXPECT_EQ(ReadFlashVar("baudrate", value), 0);
        EXPECT_EQ(value, "115200");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
    EXPECT_EQ(child.output, "115200\n");
}

TEST_F(FlashVariablesTest, VariableIsAppendedToWhatTheValueHolds)
{
    const ChildResult child = RunOnDevice([] {
        std::string value = "x";
        EXPECT_EQ(ReadFlashVar("bootdelay", value), 0);
        EXPECT_EQ(value, "x1");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, WrittenVariableIsReadBackAndOverwritten)
{
    const ChildResult child = RunOnDevice([] {
        for (const char* text : {"3", "a longer text with blanks", "7"}) {
            std::string value;
            EXPECT_EQ(WriteFlashVar("tolvex", text), 0);
            EXPECT_EQ(ReadFlashVar("tolvex", value), 0);
            EXPECT_EQ(value, text);
        }
        std::string other;
        EXPECT_EQ(ReadFlashVar("baudrate", other), 0);
        EXPECT_EQ(other, "115200");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, WrittenVariableIsInTheFlashWithAValidChecksum)
{
    const ChildResult child = RunOnDevice([] {
        EXPECT_EQ(WriteFlashVar("bootdelay", "25"), 0);

        const std::string image = ReadFile("/dev/mtd1");
        EXPECT_EQ(image.size(), environmentBytes);
        EXPECT_NE(image.find(std::string("bootdelay=25\0", 13)), std::string::npos);
        EXPECT_EQ(image, Environment(image.substr(sizeof(std::uint32_t))));
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, LineEndsInAVariableAreRemovedWhereverTheyStand)
{
    const ChildResult child = RunOnDevice([] {
        std::string value;
        EXPECT_EQ(WriteFlashVar("lines", "a\r\nb\n"), 0);
        EXPECT_EQ(ExecCmd_Pipe("/sbin/fw_printenv -n lines"), "a\r\nb\n\n");

        EXPECT_EQ(ReadFlashVar("lines", value), 0);

        EXPECT_EQ(value, "ab");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, ShellReadsTheValueBecauseNothingIsEscaped)
{
    const ChildResult child = RunOnDevice([] {
        std::string value;
        EXPECT_EQ(WriteFlashVar("sum", "$((40 + 2))"), 0);
        EXPECT_EQ(ReadFlashVar("sum", value), 0);
        EXPECT_EQ(value, "42");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, UnknownVariableIsWhatTheToolSaysAndLeavesTheValue)
{
    const ChildResult child = RunOnDevice([] {
        // The tools differ: some fail for an unknown variable, some print an empty line.
        const int status = ExecCmd_System("/sbin/fw_printenv -n unknown >/dev/null 2>&1");
        std::string value = "as it was";

        EXPECT_EQ(ReadFlashVar("unknown", value), status == 0 ? 0 : -1);

        EXPECT_EQ(value, "as it was");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, UnknownVariableFailsWithAToolThatSaysSo)
{
    const ChildResult child = RunOnDevice([] {
        std::ofstream("/sbin/fw_printenv.new") << "#!/bin/sh\necho '## Error: not defined' >&2\n"
                                                  "exit 1\n";
        fs::permissions("/sbin/fw_printenv.new", fs::perms::owner_all);
        fs::rename("/sbin/fw_printenv.new", "/sbin/fw_printenv");
        std::string value = "as it was";

        EXPECT_EQ(ReadFlashVar("unknown", value), -1);

        EXPECT_EQ(value, "as it was");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, ToolsFailWithoutAConfigFile)
{
    const ChildResult child = RunOnDevice([] {
        fs::remove(configFile);
        std::string value = "as it was";

        EXPECT_EQ(ReadFlashVar("bootdelay", value), -1);
        EXPECT_NE(WriteFlashVar("bootdelay", "3"), 0);

        EXPECT_EQ(value, "as it was");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST_F(FlashVariablesTest, ToolsThatAreMissingGiveTheShellsStatus)
{
    const ChildResult child = RunOnDevice([] {
        fs::remove("/sbin/fw_printenv");
        fs::remove("/sbin/fw_setenv");
        std::string value = "as it was";

        EXPECT_EQ(ReadFlashVar("bootdelay", value), -1);
        EXPECT_EQ(WriteFlashVar("bootdelay", "3"), 127 << 8);

        EXPECT_EQ(value, "as it was");
    });

    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace
