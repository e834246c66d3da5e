// The accelerometer of the dashcam: its pace, its threshold, and files that hold more than samples.
#include "examples/dashcam/Accelerometer.h"

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Interfaces/Stopped.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/Patience.h"
#include "tests/Support/ScratchDirectory.h"

#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {
namespace {

using namespace std::chrono_literals;
using Tolvex::Interfaces::Stopped;
using Tolvex::Support::Eventually;

/// An accelerometer that reads a FIFO of the test, and the dispatcher that observes it.
struct Sensor
{
    Sensor(const Tolvex::Support::ScratchDirectory& directory, const Settings& settings)
        : path(directory.Path("fifo")),
          made(mkfifo(path.c_str(), 0600)),
          recorder(settings),
          none(settings, ""),
          folder(directory.Path(""), settings),
          clips(settings, recorder, none, folder),
          accelerometer(settings, path),
          writer(path)
    {
        EXPECT_EQ(made, 0);
        accelerometer.AddCallback(&clips);
        accelerometer.Start();
    }

    const std::string path;
    const int made;  ///< 0: the FIFO was made
    Recorder recorder;
    const Accelerometer none;
    Folder folder;
    Clips clips;
    Stopped<Accelerometer> accelerometer;
    std::fstream writer;
};

std::size_t KnownSamples(const Accelerometer& accelerometer)
{
    return accelerometer.Between(Moment(1ns), Moment::max()).size();
}

class AccelerometerTest : public ::testing::Test
{
protected:
    void Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(directory.Path(name)) << bytes;
    }

    const Tolvex::Support::ScratchDirectory directory;
    Settings settings;
};

TEST_F(AccelerometerTest, FileOfLinesThatAreNoSamplesIsReadAtThePaceOfSamples)
{
    Write("text", "This file has no samples.\nNone at all\n1 2");
    settings.samplesPerSecond = 20;
    Stopped<Accelerometer> accelerometer(settings, directory.Path("text"));
    const Moment start = Clock::now();

    accelerometer.Start();

    ASSERT_TRUE(Eventually([&] { return accelerometer.Skipped() >= 10; }));
    EXPECT_GE(Clock::now() - start, 450ms);
}

TEST_F(AccelerometerTest, FileWhoseLastLineLacksItsEndIsReadAgainAndAgain)
{
    Write("text", "0 0 32\r\n0 0 31");
    settings.samplesPerSecond = 1000;
    Stopped<Accelerometer> accelerometer(settings, directory.Path("text"));

    accelerometer.Start();

    EXPECT_TRUE(Eventually([&] { return KnownSamples(accelerometer) >= 5; }));
    EXPECT_EQ(accelerometer.Skipped(), 0U);
}

TEST_F(AccelerometerTest, SampleOfAFileComesNotBeforeItsTime)
{
    Write("text", "0 0 32\n");
    settings.samplesPerSecond = 15;
    Stopped<Accelerometer> accelerometer(settings, directory.Path("text"));

    accelerometer.Start();

    for (int look = 0; look < 50; ++look) {
        for (const Sample& sample : accelerometer.Between(Moment(1ns), Moment::max())) {
            ASSERT_LE(sample.time, Clock::now());
        }
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_TRUE(
        Eventually([&] { return !accelerometer.Between(Moment(1ns), Moment::max()).empty(); }));
}

TEST_F(AccelerometerTest, FirstProblemIsLoggedAndNoOther)
{
    const std::map<std::string, std::string> problems = {
        {"missing", "No such file or directory"},
        {"empty", "has no samples"},
        {"text", "has lines that are no samples"},
    };
    Write("empty", "");
    Write("text", "one\ntwo\n");
    settings.samplesPerSecond = 100;
    for (const auto& [name, problem] : problems) {
        SCOPED_TRACE(name);
        Tolvex::Support::LogFile log;
        Stopped<Accelerometer> accelerometer(settings, directory.Path(name));
        accelerometer.Start();
        std::vector<std::string> warnings;
        const auto collect = [&] {
            for (const std::string& line : log.TakeLines()) {
                if (line.find("Thread (") == std::string::npos) {
                    warnings.push_back(line);
                }
            }
            return !warnings.empty();
        };
        EXPECT_TRUE(Eventually(collect));

        std::this_thread::sleep_for(1200ms);  // until the file is tried again
        collect();

        EXPECT_THAT(warnings, ::testing::ElementsAre(
                                  ::testing::EndsWith(directory.Path(name) + ' ' + problem)));
    }
}

TEST_F(AccelerometerTest, FifoThatIsMadeDuringTheDriveIsRead)
{
    const std::string path = directory.Path("fifo");
    Stopped<Accelerometer> accelerometer(settings, path);
    accelerometer.Start();
    std::this_thread::sleep_for(200ms);  // one look at least finds nothing

    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    std::fstream writer(path);
    writer << "0 0 32\n" << std::flush;

    EXPECT_TRUE(Eventually([&] { return KnownSamples(accelerometer) == 1; }));
}

TEST_F(AccelerometerTest, FifoThatReplacesAnotherOneIsReadFromItsFirstSample)
{
    Sensor sensor(directory, settings);
    sensor.writer << "0 0 32\n0 0" << std::flush;
    ASSERT_TRUE(Eventually([&] { return KnownSamples(sensor.accelerometer) == 1; }));
    ASSERT_EQ(unlink(sensor.path.c_str()), 0);
    sensor.writer << " 32\n0 0" << std::flush;  // without a name it is read all the same
    ASSERT_TRUE(Eventually([&] { return KnownSamples(sensor.accelerometer) == 2; }));

    ASSERT_EQ(mkfifo(sensor.path.c_str(), 0600), 0);
    std::fstream writer(sensor.path);
    writer << "0 0 32\n" << std::flush;

    EXPECT_TRUE(Eventually([&] { return KnownSamples(sensor.accelerometer) == 3; }));
    EXPECT_EQ(sensor.accelerometer.Skipped(), 0U);
}

TEST_F(AccelerometerTest, FileThatReplacesAnEmptyOneIsRead)
{
    Write("text", "");
    Write("new", "0 0 32\n");
    Stopped<Accelerometer> accelerometer(settings, directory.Path("text"));
    accelerometer.Start();
    std::this_thread::sleep_for(200ms);  // one look at least finds no sample

    ASSERT_EQ(std::rename(directory.Path("new").c_str(), directory.Path("text").c_str()), 0);

    EXPECT_TRUE(Eventually([&] { return KnownSamples(accelerometer) > 0; }));
}

TEST_F(AccelerometerTest, ShockAboveTheThresholdAtTheRangeOfTheSettingsCounts)
{
    settings.sensorRange = 8;
    settings.threshold = 2.5;
    Sensor sensor(directory, settings);

    // 2 g, and gravity. When the second sample is known, the first one has been judged.
    sensor.writer << "32 0 16\n32 0 16\n" << std::flush;
    ASSERT_TRUE(Eventually([&] { return KnownSamples(sensor.accelerometer) == 2; }));
    EXPECT_EQ(sensor.clips.Counted().events, 0);
    sensor.writer << "48 0 16\n" << std::flush;  // 3 g, and gravity

    EXPECT_TRUE(Eventually([&] { return sensor.clips.Counted().events == 1; }));
}

TEST_F(AccelerometerTest, ShockAfterAMegabyteWithoutALineEndCounts)
{
    Sensor sensor(directory, settings);

    sensor.writer << std::string(1000000, '\0') << "\n-64 0 32\n" << std::flush;

    EXPECT_TRUE(Eventually([&] { return sensor.clips.Counted().events == 1; }));
    EXPECT_GT(sensor.accelerometer.Skipped(), 0U);
}

}  // namespace
}  // namespace Dashcam
