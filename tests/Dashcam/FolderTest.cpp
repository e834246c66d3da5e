// The folder of the dashcam, to which others write too.
#include "examples/dashcam/Folder.h"

#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/LogFile.h"
#include "tests/Support/ScratchDirectory.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {
namespace {

/// @return how often a text occurs in another.
std::size_t Occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) {
        ++count;
    }
    return count;
}

class FolderTest : public ::testing::Test
{
protected:
    void Write(const std::string& name, const std::string& bytes) const
    {
        std::ofstream(directory.Path(name)) << bytes;
    }

    const Tolvex::Support::ScratchDirectory directory;
    Settings settings;
    Folder folder{directory.Path(""), settings};
};

TEST_F(FolderTest, EventOfAClockThatIsNotSetIsTheOldest)
{
    const std::map<std::string, std::string> files = {
        {"mp4", "m"}, {"jpg", "j"}, {"json", "{}"}, {"sig", "s"}};
    const std::string today = folder.Reserve(std::time(nullptr));
    folder.Save(today, files);
    const std::string unset = folder.Reserve(300);
    folder.Save(unset, files);

    std::vector<std::string> names;
    for (const auto& [time, number, name] : folder.Events()) {
        names.push_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{unset, today}));
}

TEST_F(FolderTest, PageLeavesOutWhatIsNoSideFile)
{
    for (const char* name : {"EVENT_FRONT_010120000000", "EVENT_FRONT_010120000001",
                             "EVENT_FRONT_010120000002", "EVENT_FRONT_010120000003"}) {
        Write(std::string(name) + ".mp4", "clip");
    }
    ASSERT_EQ(mkfifo(directory.Path("EVENT_FRONT_010120000000.json").c_str(), 0600), 0);
    std::filesystem::create_directory(directory.Path("EVENT_FRONT_010120000001.json"));
    Write("EVENT_FRONT_010120000002.json", "");
    std::filesystem::resize_file(directory.Path("EVENT_FRONT_010120000002.json"), 100000000);
    Write("EVENT_FRONT_010120000003.json", "{\"good\": \"</script>\"}");

    Recorder recorder(settings);
    const Accelerometer sensor(settings, "");
    Clips clips(settings, recorder, sensor, folder);
    clips.RunIgnitionOff();

    const std::string page = Tolvex::Support::ReadFile(directory.Path("index.html"));
    EXPECT_EQ(Occurrences(page, "data-name=\"EVENT_"), 4U);
    EXPECT_EQ(Occurrences(page, "{\"good\": \"\\u003c/script>\"}"), 1U);
    EXPECT_LT(page.size(), 100000U);
}

TEST_F(FolderTest, PageThatCannotBeWrittenIsLogged)
{
    std::filesystem::create_directories(directory.Path("index.html/full"));
    Tolvex::Support::LogFile log;
    Recorder recorder(settings);
    const Accelerometer sensor(settings, "");
    Clips clips(settings, recorder, sensor, folder);

    clips.RunIgnitionOff();

    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre(::testing::HasSubstr("the page is old: " +
                                                                             directory.Path(""))));
}

TEST_F(FolderTest, LeftoversOfOthersStay)
{
    const char* const ours[] = {"EVENT_FRONT_010120000000.jpg", "EVENT_FRONT_010120000001.mp4.part",
                                "index.html.part", "drive.json.part"};
    const char* const others[] = {"film.mp4.part", "EVENT_FRONT_010120000000.txt",
                                  "EVENT_FRONT_010120000002.mp4", "EVENT_FRONT_010120000002.sig",
                                  "a name with blanks.json"};
    for (const char* name : ours) {
        Write(name, "1");
    }
    for (const char* name : others) {
        Write(name, "1");
    }

    folder.ClearLeftovers();

    for (const char* name : ours) {
        EXPECT_FALSE(std::filesystem::exists(directory.Path(name))) << name;
    }
    for (const char* name : others) {
        EXPECT_TRUE(std::filesystem::exists(directory.Path(name))) << name;
    }
}

TEST_F(FolderTest, TwoThreadsThatMakeRoomRemoveNoMoreThanNeeded)
{
    settings.folderMegabytes = 1;
    for (int round = 0; round < 50; ++round) {
        for (int number = 10; number < 31; ++number) {
            Write("EVENT_FRONT_0101200000" + std::to_string(number) + ".mp4",
                  std::string(50000, ' '));
        }
        std::thread other([this] { folder.MakeRoom(0); });
        folder.MakeRoom(0);
        other.join();
        ASSERT_EQ(folder.Events().size(), 20U) << round;
    }
}

TEST_F(FolderTest, EventThatCannotBeRemovedIsNotLoggedAsRemovedAndTheNextOneGoes)
{
    Tolvex::Support::LogFile log;
    std::filesystem::create_directories(directory.Path("EVENT_FRONT_010120000000.mp4/full"));
    Write("EVENT_FRONT_010120000001.mp4", std::string(600000, ' '));
    Write("EVENT_FRONT_010120000002.mp4", std::string(600000, ' '));
    settings.folderMegabytes = 1;

    folder.MakeRoom(0);

    EXPECT_THAT(log.TakeLines(), ::testing::ElementsAre(
                                     ::testing::EndsWith("EVENT_FRONT_010120000001 to make room")));
    EXPECT_FALSE(std::filesystem::exists(directory.Path("EVENT_FRONT_010120000001.mp4")));
    EXPECT_TRUE(std::filesystem::exists(directory.Path("EVENT_FRONT_010120000002.mp4")));
}

}  // namespace
}  // namespace Dashcam
