// The accelerometer of the dashcam, with files that hold more than samples.
#include "examples/dashcam/Accelerometer.h"

#include <chrono>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <thread>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/Stopped.h"

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

    EXPECT_TRUE(
        Eventually([&] { return accelerometer.Between(Moment(1ns), Moment::max()).size() >= 5; }));
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
    EXPECT_FALSE(accelerometer.Between(Moment(1ns), Moment::max()).empty());
}

TEST_F(AccelerometerTest, ShockAboveTheThresholdAtTheRangeOfTheSettingsCounts)
{
    const std::string path = directory.Path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    settings.sensorRange = 8;
    settings.threshold = 2.5;
    Recorder recorder(settings);
    const Accelerometer none(settings, "");
    Folder folder(directory.Path(""), settings);
    Clips clips(settings, recorder, none, folder);
    Stopped<Accelerometer> accelerometer(settings, path);
    accelerometer.AddCallback(&clips);
    std::fstream writer(path);
    accelerometer.Start();

    writer << "32 0 16\n" << std::flush;  // 2 g, and gravity
    ASSERT_TRUE(
        Eventually([&] { return accelerometer.Between(Moment(1ns), Moment::max()).size() == 1; }));
    EXPECT_EQ(clips.Counted().events, 0);
    writer << "48 0 16\n" << std::flush;  // 3 g, and gravity

    EXPECT_TRUE(Eventually([&] { return clips.Counted().events == 1; }));
}

TEST_F(AccelerometerTest, ShockAfterAMegabyteWithoutALineEndCounts)
{
    const std::string path = directory.Path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Recorder recorder(settings);
    const Accelerometer none(settings, "");
    Folder folder(directory.Path(""), settings);
    Clips clips(settings, recorder, none, folder);
    Stopped<Accelerometer> accelerometer(settings, path);
    accelerometer.AddCallback(&clips);
    std::fstream writer(path);
    accelerometer.Start();

    writer << std::string(1000000, '\0') << "\n-64 0 32\n" << std::flush;

    EXPECT_TRUE(Eventually([&] { return clips.Counted().events == 1; }));
    EXPECT_GT(accelerometer.Skipped(), 0U);
}

}  // namespace
}  // namespace Dashcam
