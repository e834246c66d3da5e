// The flash variables on a real flash chip with its driver, through the boot loader's real tools.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Util/FlashUtils.h"

#include "tests/Support/Board.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using Tolvex::Support::OnBoardTest;
using Tolvex::Support::ReadFile;
using Tolvex::Util::ExecCmd_Pipe;
using Tolvex::Util::ExecCmd_System;
using Tolvex::Util::ReadFlashVar;
using Tolvex::Util::WriteFlashConfigFile;
using Tolvex::Util::WriteFlashVar;

constexpr std::size_t environmentBytes = 0x2000;

constexpr const char* initialEnvironment = "/etc/u-boot-initial-env";
constexpr const char* hiddenEnvironment = "/etc/hidden";

class FlashOnBoardTest : public OnBoardTest
{
protected:
    void SetUp() override
    {
        OnBoardTest::SetUp();
        if (!IsSkipped()) {
            ASSERT_EQ(WriteFlashConfigFile(), 0);
            ASSERT_EQ(ExecCmd_System("flash_erase -q /dev/mtd1 0 0"), 0);
        }
    }

    void TearDown() override
    {
        if (!IsSkipped() && std::filesystem::exists(hiddenEnvironment)) {
            std::filesystem::rename(hiddenEnvironment, initialEnvironment);
        }
    }
};

TEST_F(FlashOnBoardTest, ErasedFlashGivesTheInitialEnvironment)
{
    ASSERT_EQ(ReadFile("/dev/mtd1"), std::string(environmentBytes, '\xFF'));
    std::string delay;
    std::string rate;

    EXPECT_EQ(ReadFlashVar("bootdelay", delay), 0);
    EXPECT_EQ(ReadFlashVar("baudrate", rate), 0);

    EXPECT_EQ(delay, "2");
    EXPECT_EQ(rate, "115200");
}

TEST_F(FlashOnBoardTest, ErasedFlashWithoutAnInitialEnvironmentFails)
{
    std::filesystem::rename(initialEnvironment, hiddenEnvironment);
    std::string value = "as it was";

    EXPECT_EQ(ReadFlashVar("bootdelay", value), -1);
    EXPECT_NE(WriteFlashVar("bootdelay", "3"), 0);

    EXPECT_EQ(value, "as it was");
    EXPECT_EQ(ReadFile("/dev/mtd1"), std::string(environmentBytes, '\xFF'));
}

TEST_F(FlashOnBoardTest, FirstWriteStoresTheInitialEnvironmentToo)
{
    EXPECT_EQ(WriteFlashVar("serial", "42"), 0);

    const std::string image = ReadFile("/dev/mtd1");
    ASSERT_EQ(image.size(), environmentBytes);
    EXPECT_NE(image.find(std::string("serial=42\0", 10)), std::string::npos);
    EXPECT_NE(image.find(std::string("bootdelay=2\0", 12)), std::string::npos);
}

TEST_F(FlashOnBoardTest, LongestValueThatFitsIsStoredAndALongerOneChangesNothing)
{
    // Beside the checksum; the tool asks for no second NUL behind the last variable.
    constexpr std::size_t room =
        environmentBytes - 4 - sizeof "baudrate=115200" - sizeof "bootdelay=2" - sizeof "long=";
    const std::string longest(room, 'x');
    std::string value;
    EXPECT_EQ(WriteFlashVar("long", longest.c_str()), 0);
    EXPECT_EQ(ReadFlashVar("long", value), 0);
    EXPECT_EQ(value, longest);
    const std::string image = ReadFile("/dev/mtd1");

    EXPECT_NE(WriteFlashVar("long", (longest + "x").c_str()), 0);

    EXPECT_EQ(ReadFile("/dev/mtd1"), image);
}

TEST_F(FlashOnBoardTest, EmptyValueIsKeptAndUnknownVariableReadsAsEmptyToo)
{
    std::string value = "x";
    EXPECT_EQ(WriteFlashVar("empty", ""), 0);

    EXPECT_EQ(ReadFlashVar("empty", value), 0);
    EXPECT_EQ(ReadFlashVar("unknown", value), 0);

    EXPECT_EQ(value, "x");
    EXPECT_EQ(ExecCmd_Pipe("/sbin/fw_printenv empty"), "empty=\n");
}

struct Row
{
    const char* name;
    const char* argument;  ///< between the double quotes of a shell
    const char* value;
};

class OddValueTest : public FlashOnBoardTest, public testing::WithParamInterface<Row>
{
};

TEST_P(OddValueTest, ComesBackFromTheFlash)
{
    std::string value;
    EXPECT_EQ(WriteFlashVar("odd", GetParam().argument), 0);

    EXPECT_EQ(ReadFlashVar("odd", value), 0);

    EXPECT_EQ(value, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Values, OddValueTest,
    testing::Values(Row{"Blanks", " before, within and behind ", " before, within and behind "},
                    Row{"EqualsSigns", "a=b==c=", "a=b==c="},
                    Row{"Hash", "#no comment", "#no comment"}, Row{"Backslash", "a\\\\b", "a\\b"},
                    Row{"QuotesEscapedByTheCaller", "a\\\"b", "a\"b"},
                    Row{"Utf8", "\xC3\xA4\xE2\x82\xAC", "\xC3\xA4\xE2\x82\xAC"},
                    Row{"AllBitsSet", "\xFF\xFF", "\xFF\xFF"},
                    Row{"ControlCharacters", "a\x01\x1B\x7Fz", "a\x01\x1B\x7Fz"},
                    Row{"LineEnds", "a\r\nb\n", "ab"}, Row{"Shell", "$((40 + 2))", "42"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
