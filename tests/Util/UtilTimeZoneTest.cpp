// Time zones that change while the process runs.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/UtilEventName.h"
#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Namespaces.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/ThreadsInForks.h"
#include "tests/Support/TimeZone.h"

namespace Tolvex::Util {
namespace {

using Support::InTimeZone;
using Support::RunInChild;
using Support::ScratchDirectory;
using Support::ThreadsBusyAtFork;

constexpr time_t moment = 1614834367;  // 4 March 2021, 05:06:07 UTC
const std::string zones = "/usr/share/zoneinfo/";

constexpr int noRight = 77;  ///< exit code of a child that may not mount

void SetZone(const char* zone)
{
    setenv("TZ", zone, 1);
}

/// Runs work in a process whose /etc/localtime it may replace with MoveTo().
template <typename Work>
void WithOwnLocalTime(Work work)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: mounts a file system over /etc";
    }
    if (!std::filesystem::exists(zones + "Asia/Kolkata")) {
        GTEST_SKIP() << "needs the files of tzdata";
    }
    const auto child = RunInChild([&work] {
        alarm(50);
        unsetenv("TZ");
        if (!Support::EnterPrivateMountNamespace() || !Support::MountEmptyDirectory("/etc")) {
            return noRight;
        }
        work();
        return 0;
    });
    if (child.ExitCode() == noRight) {
        GTEST_SKIP() << "needs the right to mount";
    }
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

/// As a device does it: replaces the link in one step.
void MoveTo(const std::string& zone)
{
    std::filesystem::create_symlink(zones + zone, "/etc/localtime.new");
    std::filesystem::rename("/etc/localtime.new", "/etc/localtime");
}

// ---------------------------------------------------------------------------------- of the process

TEST(UtilTimeZoneTest, NextCallUsesTheZoneThatTheEnvironmentNames)
{
    InTimeZone(Support::utcZone, [] {
        EXPECT_EQ(DateISO(moment), "2021-03-04 05:06:07");
        SetZone(Support::kolkataZone);
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321103607");
        SetZone(Support::losAngelesZone);
        RefreshTimeZone();
        EXPECT_EQ(BuildEventFileName("", moment, "x"), "030321210607.x");
        time_t read = 0;
        EXPECT_TRUE(GetEventTimeFromFileName("EVENT_FRONT_030321210606.mp4", read));
        EXPECT_EQ(read, moment - 1);
        SetZone(Support::berlinZone);
        RefreshTimeZone();
        EXPECT_EQ(Date(moment, "%H%z"), "06+0100");
        const std::string text = "2021-03-04 06:06:07";
        EXPECT_EQ(Str2Time(text), moment);
    });
}

TEST(UtilTimeZoneTest, RefreshWithoutAChangeChangesNothing)
{
    InTimeZone(Support::berlinZone, [] {
        for (int count = 0; count < 100; ++count) {
            RefreshTimeZone();
            EXPECT_EQ(DateISO(moment), "2021-03-04 06:06:07");
        }
    });
}

TEST(UtilTimeZoneTest, ZoneThatDoesNotExistIsUtc)
{
    InTimeZone(Support::berlinZone, [] {
        SetZone(":no/such/zone");
        RefreshTimeZone();
        EXPECT_EQ(DateISO(moment), "2021-03-04 05:06:07");
    });
}

TEST(UtilTimeZoneTest, OnlyANewNameInTheEnvironmentIsAChangeAndNoNewContentOfTheFile)
{
    if (!std::filesystem::exists(zones + "Asia/Kolkata")) {
        GTEST_SKIP() << "needs the files of tzdata";
    }
    const ScratchDirectory directory;
    const std::string file = directory.Path("zone");
    const std::string other = directory.Path("other");
    std::filesystem::copy_file(zones + "Asia/Kolkata", file);
    InTimeZone((":" + file).c_str(), [&] {
        RefreshTimeZone();
        EXPECT_EQ(DateISO(moment), "2021-03-04 10:36:07");
        std::filesystem::copy_file(zones + "Europe/Berlin", other);
        std::filesystem::rename(other, file);
        RefreshTimeZone();
        EXPECT_EQ(DateISO(moment), "2021-03-04 10:36:07");
        SetZone((":" + directory.Path("./zone")).c_str());
        RefreshTimeZone();
        EXPECT_EQ(DateISO(moment), "2021-03-04 06:06:07");
    });
}

/// Seconds since the epoch that the line's stamp tells when it is read as UTC.
time_t StampOf(const std::string& line)
{
    tm stamp{};
    EXPECT_NE(strptime(line.c_str(), "[%Y-%m-%d %H:%M:%S", &stamp), nullptr) << line;
    return timegm(&stamp);
}

TEST(UtilTimeZoneTest, NextLogLineUsesTheNewZone)
{
    const ScratchDirectory directory;
    const std::string file = directory.Path("log");
    InTimeZone(Support::utcZone, [&file] {
        Ilog::Logger& logger = *Ilog::Logger::GetInstance();
        EXPECT_TRUE(logger.EnableFile(file));
        const auto log = [&logger] {
            logger.WriteHeader(Ilog::LogType::Notice);
            logger << "line" << std::endl;
        };
        const time_t begin = std::time(nullptr);
        for (const char* zone :
             {Support::utcZone, Support::kolkataZone, "XYZ-23:59:59", Support::kolkataZone}) {
            SetZone(zone);
            RefreshTimeZone();
            log();
        }
        logger.CloseFile();
        const time_t took = std::time(nullptr) - begin;

        const auto lines = Support::SplitLines(Support::ReadFile(file));
        const time_t offsets[] = {0, 19800, 86399, 19800};
        EXPECT_EQ(lines.size(), 4U);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            EXPECT_GE(StampOf(lines[i]), begin + offsets[i]) << lines[i];
            EXPECT_LE(StampOf(lines[i]), begin + took + offsets[i]) << lines[i];
        }
    });
}

// ----------------------------------------------------------------------------------- of the system

TEST(UtilTimeZoneTest, NextCallUsesTheZoneThatTheSystemHasNow)
{
    WithOwnLocalTime([] {
        MoveTo("Etc/UTC");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321050607");
        MoveTo("Asia/Kolkata");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321103607");
        MoveTo("America/Los_Angeles");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "030321210607");
        // The same name, and another file behind it.
        std::filesystem::remove("/etc/localtime");
        std::filesystem::copy_file(zones + "Europe/Berlin", "/etc/localtime");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321060607");
    });
}

TEST(UtilTimeZoneTest, MissingOrDamagedFileIsUtcAndAGoodOneHelpsAgain)
{
    WithOwnLocalTime([] {
        MoveTo("Asia/Kolkata");
        RefreshTimeZone();
        std::filesystem::remove("/etc/localtime");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321050607");
        std::ofstream("/etc/localtime") << "TZif2 and nothing that makes sense";
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321050607");
        MoveTo("Asia/Kolkata");
        RefreshTimeZone();
        EXPECT_EQ(EventTimeToString(moment), "040321103607");
    });
}

TEST(UtilTimeZoneTest, DatesAreOfOneZoneOrTheOtherWhileItChanges)
{
    WithOwnLocalTime([] {
        MoveTo("Etc/UTC");
        RefreshTimeZone();
        std::atomic<bool> over = false;
        std::vector<std::thread> readers;
        for (int count = 0; count < 4; ++count) {
            readers.emplace_back([&over] {
                while (!over) {
                    EXPECT_THAT(EventTimeToString(moment),
                                testing::AnyOf("040321050607", "040321103607"));
                }
            });
        }
        for (int round = 0; round < 200; ++round) {
            MoveTo(round % 2 == 0 ? "Asia/Kolkata" : "Etc/UTC");
            RefreshTimeZone();
        }
        over = true;
        for (std::thread& reader : readers) {
            reader.join();
        }
        EXPECT_EQ(EventTimeToString(moment), "040321050607");
    });
}

TEST(UtilTimeZoneTest, ChildThatIsForkedDuringARefreshKnowsTheTime)
{
    std::atomic<bool> over = false;
    std::vector<std::thread> refreshers;
    for (int thread = 0; thread < ThreadsBusyAtFork(1); ++thread) {
        refreshers.emplace_back([&over] {
            while (!over) {
                RefreshTimeZone();
            }
        });
    }
    for (int round = 0; round < 50; ++round) {
        const auto child = RunInChild([] {
            alarm(20);
            RefreshTimeZone();
            return DateISO(moment).empty() ? 1 : 0;
        });
        EXPECT_TRUE(child.Succeeded()) << child.output;
    }
    over = true;
    for (std::thread& refresher : refreshers) {
        refresher.join();
    }
}

}  // namespace
}  // namespace Tolvex::Util
