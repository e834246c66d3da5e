#include "Tolvex/Util/EventFile.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Exception/IException.h"
#include "Tolvex/Util/UtilEventName.h"
#include "Tolvex/Util/UtilTime.h"

#include "tests/Support/CancellableStack.h"
#include "tests/Support/ChildProcess.h"
#include "tests/Support/CountingNew.h"
#include "tests/Support/ScratchDirectory.h"
#include "tests/Support/SmallFileSystem.h"
#include "tests/Support/TimeZone.h"

namespace Tolvex::Util {
namespace {

using Support::ReadFile;
using Support::ScratchDirectory;

const std::string prefix = "EVENT_FRONT_";
constexpr time_t eventTime = 1614834367;  // 4 March 2021, 05:06:07 UTC

/// The path that is made, or the text of the exception.
std::string Create(const std::string& directory, const std::string& front = prefix,
                   time_t time = eventTime, const std::string& extension = "mp4")
{
    try {
        return CreateEventFile(directory, front, time, extension);
    } catch (const IException& problem) {
        return problem.what();
    }
}

// -------------------------------------------------------------------------------------- creating

TEST(EventFileTest, FirstEventOfASecondHasThePlainNameAndTheNextOnesACounter)
{
    Support::InTimeZone(Support::utcZone, [] {
        const ScratchDirectory directory;
        const std::string root = directory.Path("");

        EXPECT_EQ(Create(root), root + "EVENT_FRONT_040321050607.mp4");
        EXPECT_EQ(Create(root), root + "EVENT_FRONT_040321050607_2.mp4");
        EXPECT_EQ(Create(root), root + "EVENT_FRONT_040321050607_3.mp4");
        EXPECT_EQ(Create(root, "EVENT_BACK__"), root + "EVENT_BACK__040321050607.mp4");
        EXPECT_EQ(Create(root, prefix, eventTime + 1), root + "EVENT_FRONT_040321050608.mp4");
        EXPECT_EQ(Create(root, prefix, eventTime, ""), root + "EVENT_FRONT_040321050607.");
    });
}

TEST(EventFileTest, FileIsEmptyAndWhatStandsThereIsLeftAsItIs)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("events");
    std::filesystem::create_directory(root);
    const std::string first = root + "/" + BuildEventFileName(prefix, eventTime, "mp4");
    std::ofstream(first) << "a film";

    const std::string second = Create(root);

    EXPECT_NE(second, first);
    EXPECT_EQ(ReadFile(first), "a film");
    EXPECT_TRUE(std::filesystem::is_regular_file(second));
    EXPECT_EQ(std::filesystem::file_size(second), 0U);
}

TEST(EventFileTest, UmaskLimitsTheAccessRightsOfTheFile)
{
    const ScratchDirectory directory;
    const auto result = Support::RunInChild([&] {
        for (const mode_t mask : {0U, 022U, 0137U, 0777U}) {
            umask(mask);
            struct stat status = {};
            EXPECT_EQ(stat(Create(directory.Path("")).c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777U, 0666U & ~mask);
        }
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST(EventFileTest, CancellationWaitsUntilTheFileIsCreated)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("");
    std::string path = "cancelled";
    std::thread([&] {
        const Support::CancellableStack stack;
        pthread_cancel(pthread_self());
        path = Create(root);
    }).join();

    EXPECT_EQ(path, root + BuildEventFileName(prefix, eventTime, "mp4"));
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(EventFileTest, LinksAndDirectoriesOfTheNameCountAsTaken)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("");
    const std::string name = BuildEventFileName(prefix, eventTime, "mp4");
    std::filesystem::create_symlink(root + "nowhere", root + name);
    std::filesystem::create_directory(std::string(root + name).insert(root.size() + 24, "_2"));

    EXPECT_EQ(Create(root), std::string(root + name).insert(root.size() + 24, "_3"));

    EXPECT_FALSE(std::filesystem::exists(root + "nowhere"));
}

TEST(EventFileTest, EmptyDirectoryIsTheWorkingDirectory)
{
    const ScratchDirectory directory;
    const auto result = Support::RunInChild([&] {
        EXPECT_EQ(chdir(directory.Path("").c_str()), 0);
        EXPECT_EQ(Create(""), BuildEventFileName(prefix, eventTime, "mp4"));
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    EXPECT_TRUE(
        std::filesystem::exists(directory.Path(BuildEventFileName(prefix, eventTime, "mp4"))));
}

TEST(EventFileTest, TwoProcessesOfEightThreadsNeverGetTheSameFile)
{
    constexpr int threadsPerProcess = 8;
    constexpr int filesPerThread = 20;
    const ScratchDirectory directory;
    const std::string root = directory.Path("");

    // Both processes run this. Each file gets a line of everybody who has been given it.
    const auto createMany = [&root] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < threadsPerProcess; ++thread) {
            threads.emplace_back([&root] {
                for (int file = 0; file < filesPerThread; ++file) {
                    const std::string path = Create(root);
                    std::ofstream(path, std::ios::app) << "mine\n";
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
    const auto result = Support::RunInChild([&] {
        const pid_t other = Support::StartChild([&] {
            createMany();
            return 0;
        });
        createMany();
        int status = -1;
        return waitpid(other, &status, 0) == other ? status : 1;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    std::map<std::uint32_t, int> numbers;
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        EventFileName parts;
        EXPECT_TRUE(ReadEventFileName(entry.path().filename().string(), parts)) << entry.path();
        ++numbers[parts.number];
        EXPECT_EQ(ReadFile(entry.path().string()), "mine\n") << entry.path();
    }
    // Without a gap: a number is given up only when its file is there.
    constexpr std::size_t files = std::size_t{2} * threadsPerProcess * filesPerThread;
    EXPECT_EQ(numbers.size(), files);
    EXPECT_EQ(numbers.rbegin()->first, files);
}

// ---------------------------------------------------------------------------------------- faults

TEST(EventFileTest, RemovedDirectoryIsNamedWithTheReason)
{
    Support::InTimeZone(Support::utcZone, [] {
        const ScratchDirectory directory;
        const std::string gone = directory.Path("gone");

        EXPECT_EQ(Create(gone), "Failed to create the event file: No such file or directory (" +
                                    gone + "/EVENT_FRONT_040321050607.mp4)");

        std::ofstream(gone) << "a file";
        EXPECT_EQ(Create(gone), "Failed to create the event file: Not a directory (" + gone +
                                    "/EVENT_FRONT_040321050607.mp4)");
    });
}

TEST(EventFileTest, WorkingDirectoryThatWasRemovedIsAnError)
{
    const ScratchDirectory directory;
    const auto result = Support::RunInChild([&] {
        const std::string gone = directory.Path("gone");
        std::filesystem::create_directory(gone);
        EXPECT_EQ(chdir(gone.c_str()), 0);
        std::filesystem::remove(gone);
        EXPECT_THROW(CreateEventFile("", prefix, eventTime, "mp4"), IException);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
}

TEST(EventFileTest, FullFileSystemIsAnErrorAndLeavesWhatIsThere)
{
    Support::InSmallFileSystem("nr_inodes=3", [](const std::string& mounted) {
        const std::string first = Create(mounted);
        const std::string second = Create(mounted);
        EXPECT_THAT(second, testing::EndsWith("_2.mp4"));

        EXPECT_THAT(Create(mounted), testing::HasSubstr(": No space left on device ("));

        EXPECT_TRUE(std::filesystem::exists(first));
        std::filesystem::remove(first);
        EXPECT_EQ(Create(mounted), first);
    });
}

TEST(EventFileTest, ReadOnlyFileSystemIsAnErrorAlsoWhereTheNameIsTaken)
{
    Support::InSmallFileSystem("size=64k", [](const std::string& mounted) {
        const std::string first = Create(mounted);
        Support::RemountSmallFileSystem(mounted, true);

        EXPECT_THAT(Create(mounted), testing::HasSubstr(": Read-only file system ("));

        Support::RemountSmallFileSystem(mounted, false);
        EXPECT_THAT(Create(mounted), testing::EndsWith("_2.mp4"));
        EXPECT_TRUE(std::filesystem::exists(first));
    });
}

TEST(EventFileTest, ReasonIsToldAlsoForAPathThatAnExceptionCannotHold)
{
    EXPECT_THAT(Create("/" + std::string(5000, 'd')),
                testing::StartsWith("Failed to create the event file: File name too long (/ddd"));
}

TEST(EventFileTest, WithoutMemoryTheCallThrowsAndCreatesNoFile)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("");
    bool created = false;
    for (std::size_t allocations = 0; !created; ++allocations) {
        ASSERT_LT(allocations, 1000U);
        try {
            const Support::AllocationBudget budget(allocations);
            CreateEventFile(root, prefix, eventTime, "mp4");
            created = true;
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(std::filesystem::is_empty(root)) << allocations << " allocations";
        }
    }
    EXPECT_FALSE(std::filesystem::is_empty(root));
}

TEST(EventFileTest, NoDescriptorLeftIsAnError)
{
    const ScratchDirectory directory;
    const auto result = Support::RunInChild([&] {
        while (dup(STDOUT_FILENO) >= 0) {
        }
        EXPECT_THROW(CreateEventFile(directory.Path(""), prefix, eventTime, "mp4"), IException);
        return 0;
    });

    EXPECT_TRUE(result.Succeeded()) << result.output;
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path("")));
}

TEST(EventFileTest, PartsThatMakeNoNameAreRefusedAndCreateNothing)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("");
    const std::string nul(1, '\0');

    for (const std::string& bad : {std::string(), prefix.substr(1), prefix + "_",
                                   "EVENT/FRONT_" + std::string(), prefix.substr(1) + nul}) {
        EXPECT_THAT(Create(root, bad), testing::HasSubstr("the prefix needs 12 characters"));
    }
    EXPECT_THAT(Create(root, prefix, eventTime, "a/b"), testing::HasSubstr("the extension holds"));
    EXPECT_THAT(Create(root, prefix, eventTime, nul), testing::HasSubstr("the extension holds"));
    EXPECT_THAT(Create(root + nul), testing::HasSubstr("the directory holds a NUL"));
    if constexpr (sizeof(time_t) > 4) {
        EXPECT_THAT(Create(root, prefix, static_cast<time_t>(1) << 62),
                    testing::HasSubstr("the time has no local date"));
    }

    EXPECT_TRUE(std::filesystem::is_empty(root));
}

TEST(EventFileTest, SecondWithAllItsEventsIsAnError)
{
    const ScratchDirectory directory;
    const std::string root = directory.Path("");
    const std::string first = Create(root);
    std::string last;
    for (std::uint32_t number = 2; number <= mostEventsPerSecond; ++number) {
        last = std::string(first).insert(root.size() + 24, "_" + std::to_string(number));
        std::filesystem::create_hard_link(first, last);
    }

    EXPECT_THAT(Create(root), testing::HasSubstr(": the second has 9999 events already ("));

    std::filesystem::remove(last);
    EXPECT_EQ(Create(root), last);
}

// --------------------------------------------------------------------------------------- reading

/// What the reader makes of a name: "EVENT_FRONT_ 2021-03-04 05:06:07 #2 mp4", or "none".
std::string ReadBack(const std::string& name)
{
    EventFileName parts{"untouched", 1, 77, "too"};
    if (!ReadEventFileName(name, parts)) {
        EXPECT_EQ(parts.prefix + parts.extension, "untouchedtoo");
        EXPECT_EQ(parts.time, 1);
        EXPECT_EQ(parts.number, 77U);
        return "none";
    }
    return parts.prefix + " " + DateISO(parts.time) + " #" + std::to_string(parts.number) + " " +
           parts.extension;
}

struct NameCase
{
    const char* label;
    std::string name;
    const char* expected;
};

class EventFileNameTest : public testing::TestWithParam<NameCase>
{
};

TEST_P(EventFileNameTest, NameReadsAs)
{
    Support::InTimeZone(Support::utcZone,
                        [] { EXPECT_EQ(ReadBack(GetParam().name), GetParam().expected); });
}

constexpr const char* plain = "EVENT_FRONT_ 2021-03-04 05:06:07 #1 mp4";

INSTANTIATE_TEST_SUITE_P(
    Names, EventFileNameTest,
    testing::Values(NameCase{"Plain", prefix + "040321050607.mp4", plain},
                    NameCase{"Second", prefix + "040321050607_2.mp4",
                             "EVENT_FRONT_ 2021-03-04 05:06:07 #2 mp4"},
                    NameCase{"Last", prefix + "040321050607_9999.mp4",
                             "EVENT_FRONT_ 2021-03-04 05:06:07 #9999 mp4"},
                    NameCase{"EmptyExtension", prefix + "040321050607.",
                             "EVENT_FRONT_ 2021-03-04 05:06:07 #1 "},
                    NameCase{"ExtensionWithStops", prefix + "040321050607_2..tar.gz",
                             "EVENT_FRONT_ 2021-03-04 05:06:07 #2 .tar.gz"},
                    NameCase{"StopsInThePrefix", "A.B.C.D.E.F.040321050607.mp4",
                             "A.B.C.D.E.F. 2021-03-04 05:06:07 #1 mp4"},
                    NameCase{"LeapDay", prefix + "290220235959.mp4",
                             "EVENT_FRONT_ 2020-02-29 23:59:59 #1 mp4"},
                    NameCase{"LeapSecond", prefix + "311216235960.mp4",
                             "EVENT_FRONT_ 2017-01-01 00:00:00 #1 mp4"},
                    NameCase{"Empty", "", "none"},                                      //
                    NameCase{"PrefixAlone", prefix, "none"},                            //
                    NameCase{"NoStop", prefix + "040321050607", "none"},                //
                    NameCase{"StampTooShort", prefix + "04032105060.mp4", "none"},      //
                    NameCase{"StampTooLong", prefix + "0403210506070.mp4", "none"},     //
                    NameCase{"LetterInTheStamp", prefix + "04032105060x.mp4", "none"},  //
                    NameCase{"SignInTheStamp", prefix + "+4+3+1+5+6+7.mp4", "none"},    //
                    NameCase{"BlankInTheStamp", prefix + " 40321050607.mp4", "none"},   //
                    NameCase{"DayZero", prefix + "000321050607.mp4", "none"},           //
                    NameCase{"NoLeapDay", prefix + "290221050607.mp4", "none"},         //
                    NameCase{"MonthZero", prefix + "040021050607.mp4", "none"},         //
                    NameCase{"MonthThirteen", prefix + "041321050607.mp4", "none"},     //
                    NameCase{"HourTwentyFour", prefix + "040321240607.mp4", "none"},    //
                    NameCase{"MinuteSixty", prefix + "040321056007.mp4", "none"},       //
                    NameCase{"SecondSixtyOne", prefix + "040321050661.mp4", "none"},    //
                    NameCase{"CounterMissing", prefix + "040321050607_.mp4", "none"},   //
                    NameCase{"CounterOne", prefix + "040321050607_1.mp4", "none"},      //
                    NameCase{"CounterZero", prefix + "040321050607_0.mp4", "none"},     //
                    NameCase{"CounterWithZeroInFront", prefix + "040321050607_02.mp4", "none"},
                    NameCase{"CounterTooHigh", prefix + "040321050607_10000.mp4", "none"},  //
                    NameCase{"CounterNegative", prefix + "040321050607_-2.mp4", "none"},    //
                    NameCase{"CounterWithLetter", prefix + "040321050607_2a.mp4", "none"},  //
                    NameCase{"OtherMark", prefix + "040321050607-2.mp4", "none"},           //
                    NameCase{"Directory", "/EVENT_FRONT040321050607.mp4", "none"},          //
                    NameCase{"SlashInTheExtension", prefix + "040321050607.mp4/x", "none"},
                    NameCase{"Nul", prefix + "040321050607.mp4" + std::string(1, '\0'), "none"},
                    NameCase{"VeryLongCounter",
                             prefix + "040321050607_" + std::string(100000, '9') + ".mp4", "none"}),
    [](const testing::TestParamInfo<NameCase>& row) { return std::string(row.param.label); });

TEST(EventFileTest, TimeThatTheTimeTypeCannotHoldIsRefused)
{
    Support::InTimeZone(Support::utcZone, [] {
        EXPECT_EQ(ReadBack(prefix + "311299235959.mp4"),
                  sizeof(time_t) == 4 ? "none" : "EVENT_FRONT_ 2099-12-31 23:59:59 #1 mp4");
    });
}

TEST(EventFileTest, NamesAreReadAsLocalTimeInWinterAndInSummer)
{
    Support::InTimeZone(Support::berlinZone, [] {
        EventFileName parts;
        EXPECT_TRUE(ReadEventFileName(prefix + "040321060607.mp4", parts));
        EXPECT_EQ(parts.time, eventTime);
        EXPECT_TRUE(ReadEventFileName(prefix + "040721050000.mp4", parts));
        EXPECT_EQ(parts.time, 1625367600);
    });
}

TEST(EventFileTest, NamesOfTheSameSecondAreReadByTheReaderOfPlainNames)
{
    Support::InTimeZone(Support::utcZone, [] {
        time_t t = 0;
        EXPECT_TRUE(GetEventTimeFromFileName(prefix + "040321050607_2.mp4", t));
        EXPECT_EQ(DateISO(t), "2021-03-04 05:06:06");
    });
}

}  // namespace
}  // namespace Tolvex::Util
