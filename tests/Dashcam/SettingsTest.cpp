// The settings of the dashcam: what is taken, and what the log says of the rest.
#include "examples/dashcam/Settings.h"

#include <fstream>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Support/LogFile.h"
#include "tests/Support/ScratchDirectory.h"

namespace Dashcam {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

/// A setting that is a number.
struct Number
{
    const char* name;
    std::variant<int Settings::*, double Settings::*> member;
    const char* good;  ///< not the default
    const char* least;
    const char* most;
    std::vector<const char*> beyond;

    bool IsWhole() const { return member.index() == 0; }

    double Of(const Settings& settings) const
    {
        return std::visit([&](auto which) { return static_cast<double>(settings.*which); }, member);
    }
};

const std::vector<Number> numbers = {
    {"width", &Settings::width, "640", "64", "3840", {"63", "3841", "-640"}},
    {"height", &Settings::height, "480", "64", "2160", {"63", "2161", "-480"}},
    {"framesPerSecond", &Settings::framesPerSecond, "25", "1", "120", {"0", "121", "-25"}},
    {"keyInterval", &Settings::keyInterval, "5", "1", "300", {"0", "301", "-5"}},
    {"kilobitsPerSecond", &Settings::kilobitsPerSecond, "100", "50", "50000", {"49", "50001"}},
    {"secondsBefore", &Settings::secondsBefore, "7", "1", "60", {"0", "61", "-7"}},
    {"secondsAfter", &Settings::secondsAfter, "7", "1", "60", {"0", "61", "-7"}},
    {"longestClip", &Settings::longestClip, "200", "121", "300", {"1", "301", "-200"}},
    {"threshold", &Settings::threshold, "2.5", "0.05", "16", {"0.049", "16.001", "-2.5", "1e308"}},
    {"sensorRange", &Settings::sensorRange, "8", "1", "128", {"0", "129", "-8"}},
    {"samplesPerSecond", &Settings::samplesPerSecond, "100", "1", "1000", {"0", "1001", "-100"}},
    {"latitude", &Settings::latitude, "-33.9", "-90", "90", {"-90.001", "90.001", "-1e308"}},
    {"longitude", &Settings::longitude, "18.4", "-180", "180", {"-180.001", "180.001"}},
    {"folderMegabytes", &Settings::folderMegabytes, "9", "1", "1000000", {"0", "1000001", "-9"}},
    {"diskFloorMegabytes", &Settings::diskFloorMegabytes, "9", "0", "1000000", {"1000001", "-1"}},
};

/// The members of a document, as they are written.
using Members = std::map<std::string, std::string>;

Members GoodMembers()
{
    Members members = {{"key", R"("a key")"}};
    for (const Number& number : numbers) {
        members[number.name] = number.good;
    }
    return members;
}

/// A file of settings, and the lines that reading it has logged.
class SettingsTest : public ::testing::Test
{
protected:
    Settings Read(const std::string& document)
    {
        std::ofstream(path) << document;
        Settings settings = ReadSettings(path);
        lines = log.TakeLines();
        return settings;
    }

    Settings Read(const Members& members)
    {
        std::string document;
        for (const auto& [name, value] : members) {
            document += document.empty() ? "{\"" : ",\n\"";
            document += name;
            document += "\": ";
            document += value;
        }
        return Read(document + "}");
    }

    /// Reads good settings and one that is not: it alone has its default and is named.
    void ExpectDefault(const std::string& name, const Members& members, const std::string& problem)
    {
        SCOPED_TRACE(name + (members.contains(name) ? ": " + members.at(name) : " is missing"));
        const Settings settings = Read(members);
        EXPECT_THAT(lines, ElementsAre(EndsWith("setting " + name + " " + problem +
                                                ": its default is used")));
        const Settings good = Read(GoodMembers());
        for (const Number& number : numbers) {
            EXPECT_EQ(number.Of(settings), number.Of(number.name == name ? Settings() : good))
                << number.name;
        }
        EXPECT_EQ(settings.key, name == "key" ? Settings().key : "a key");
    }

    static void ExpectAllDefaults(const Settings& settings)
    {
        for (const Number& number : numbers) {
            EXPECT_EQ(number.Of(settings), number.Of(Settings())) << number.name;
        }
        EXPECT_EQ(settings.key, Settings().key);
    }

    const Tolvex::Support::ScratchDirectory directory;
    const std::string path = directory.Path("settings.json");
    Tolvex::Support::LogFile log;
    std::vector<std::string> lines;  ///< of the last Read()
};

TEST_F(SettingsTest, GoodSettingsAreTakenWithoutAWord)
{
    const Settings settings = Read(GoodMembers());

    EXPECT_THAT(lines, IsEmpty());
    for (const Number& number : numbers) {
        EXPECT_EQ(number.Of(settings), std::stod(number.good)) << number.name;
        EXPECT_NE(number.Of(settings), number.Of(Settings())) << number.name;
    }
    EXPECT_EQ(settings.key, "a key");
}

TEST_F(SettingsTest, SettingThatIsMissingIsNamedAndHasItsDefault)
{
    for (const auto& [name, value] : GoodMembers()) {
        Members members = GoodMembers();
        members.erase(name);
        ExpectDefault(name, members, "is missing");
    }
}

TEST_F(SettingsTest, SettingOfAWrongTypeIsNamedAndHasItsDefault)
{
    for (const Number& number : numbers) {
        for (const char* const wrong : {R"("7")", "true", "null", "[7]", R"({"a": 7})", "7.5"}) {
            if (wrong != std::string("7.5") || number.IsWhole()) {
                Members members = GoodMembers();
                members[number.name] = wrong;
                ExpectDefault(number.name, members,
                              number.IsWhole() ? "is no whole number" : "is no number");
            }
        }
    }
    for (const char* const wrong : {"7", "7.5", "true", "null", R"(["a"])", R"({"a": "b"})"}) {
        Members members = GoodMembers();
        members["key"] = wrong;
        ExpectDefault("key", members, "is no text");
    }
}

TEST_F(SettingsTest, SettingOutOfItsRangeIsNamedAndHasItsDefault)
{
    for (const Number& number : numbers) {
        for (const char* const beyond : number.beyond) {
            Members members = GoodMembers();
            members[number.name] = beyond;
            ExpectDefault(number.name, members, "is out of its range");
        }
    }
    for (const std::size_t length : {0U, 129U, 100000U}) {
        Members members = GoodMembers();
        members["key"] = '"' + std::string(length, 'k') + '"';
        ExpectDefault("key", members, "needs 1 to 128 bytes");
    }
}

TEST_F(SettingsTest, SettingAtTheLimitsOfItsRangeIsTaken)
{
    for (const Number& number : numbers) {
        for (const char* const limit : {number.least, number.most}) {
            Members members = GoodMembers();
            members["secondsBefore"] = members["secondsAfter"] = "60";
            members[number.name] = limit;
            EXPECT_EQ(number.Of(Read(members)), std::stod(limit)) << number.name;
            EXPECT_THAT(lines, IsEmpty());
        }
    }
    for (const std::size_t length : {1U, 128U}) {
        Members members = GoodMembers();
        members["key"] = '"' + std::string(length, 'k') + '"';
        EXPECT_EQ(Read(members).key, std::string(length, 'k'));
        EXPECT_THAT(lines, IsEmpty());
    }
}

TEST_F(SettingsTest, UnknownNamesAreLogged)
{
    Members members = GoodMembers();
    members["Width"] = "640";
    members["surprise"] = "{}";

    Read(members);

    EXPECT_THAT(lines, ElementsAre(EndsWith("unknown setting: Width"),
                                   EndsWith("unknown setting: surprise")));
}

TEST_F(SettingsTest, EmptyDocumentNamesEverySetting)
{
    ExpectAllDefaults(Read("{}"));

    EXPECT_EQ(lines.size(), numbers.size() + 1);
}

TEST_F(SettingsTest, BrokenFileIsReportedWithLineAndColumnAndAllSettingsHaveTheirDefaults)
{
    const std::map<std::string, std::string> broken = {
        {"{\"width\": 640,\n  \"height\": 480px}", "2:13: "},
        {"{\"width\": 640,\n \"threshold\": NaN}", "2:15: "},
        {"{\"width\": 640,\n \"threshold\": Infinity}", "2:15: "},
        {"{\n\"threshold\": 1e999}", "2:14: "},
        {"{\"width\": 640", "1:14: "},
        {"{\"width\": 640} x", "1:16: "},
        {"{\"threshold\": 1.0,\n  \"height\": }x", "2:14: "},
        {"", "1:1: expected an object or an array"},
    };
    for (const auto& [document, place] : broken) {
        SCOPED_TRACE(document);
        ExpectAllDefaults(Read(document));
        EXPECT_THAT(lines, ElementsAre(::testing::AllOf(::testing::HasSubstr(path + ':' + place),
                                                        EndsWith(": all defaults are used"))));
    }
}

TEST_F(SettingsTest, DocumentThatIsNoObjectLeavesAllDefaults)
{
    ExpectAllDefaults(Read("[640, 480]"));

    EXPECT_THAT(lines, ElementsAre(EndsWith(path + ": no object: all defaults are used")));
}

TEST_F(SettingsTest, FileThatCannotBeReadIsReportedWithTheReasonOfTheSystem)
{
    const std::map<std::string, std::string> unreadable = {
        {directory.Path("missing.json"), "No such file or directory"},
        {directory.Path(""), "Is a directory"},
    };
    for (const auto& [file, reason] : unreadable) {
        SCOPED_TRACE(file);
        std::string expected = file;
        expected.append(": ").append(reason).append(": all defaults are used");
        ExpectAllDefaults(ReadSettings(file));
        EXPECT_THAT(log.TakeLines(), ElementsAre(EndsWith(expected)));
    }
}

TEST_F(SettingsTest, SizeBecomesEven)
{
    Members members = GoodMembers();
    members["width"] = "641";
    members["height"] = "479";

    const Settings settings = Read(members);

    EXPECT_EQ(settings.width, 640);
    EXPECT_EQ(settings.height, 478);
}

TEST_F(SettingsTest, LongestClipHasRoomForTheSecondsBeforeAndAfter)
{
    Members members = GoodMembers();
    members["secondsBefore"] = "10";
    members["secondsAfter"] = "20";
    members["longestClip"] = "2";

    EXPECT_EQ(Read(members).longestClip, 31);
}

TEST_F(SettingsTest, WithoutAFileAllDefaultsAreUsed)
{
    ExpectAllDefaults(ReadSettings(""));
}

}  // namespace
}  // namespace Dashcam
