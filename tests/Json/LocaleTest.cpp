#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Standard.h"

namespace {

using namespace Tolvex::Json;

/// A process that writes a decimal comma, with a locale made for it.
class LocaleTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string name =
            (std::filesystem::temp_directory_path() / "tolvex-locale-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder = name;
        const std::string command = "localedef -i de_DE -f ISO-8859-1 '" +
                                    (folder / "de_DE").string() + "' > /dev/null 2>&1";
        // Fail instead of skipping: scripts/setup installs what makes the locale.
        ASSERT_EQ(std::system(command.c_str()), 0)  // NOLINT(concurrency-mt-unsafe)
            << "localedef cannot make a locale; is the package locales installed?";
        setenv("LOCPATH", folder.c_str(), 1);                 // NOLINT(concurrency-mt-unsafe)
        ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);  // NOLINT(concurrency-mt-unsafe)
    }

    void TearDown() override
    {
        std::setlocale(LC_ALL, "C");  // NOLINT(concurrency-mt-unsafe)
        unsetenv("LOCPATH");          // NOLINT(concurrency-mt-unsafe)
        std::filesystem::remove_all(folder);
    }

    std::filesystem::path folder;
};

TEST_F(LocaleTest, NumbersAreReadAndWrittenWithAPoint)
{
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");  // NOLINT(concurrency-mt-unsafe)

    EXPECT_EQ(SerializeValue(Value(1.5)), "1.500000");
    EXPECT_EQ(SerializeValue(Value(1e300)).find(','), std::string::npos);
    EXPECT_EQ(SerializeStandard(1.5), "1.5");
    EXPECT_EQ(SerializeStandard(Value::FromFloat(-1e-7F)), "-1e-07");
    EXPECT_EQ(Serialize(Deserialize("[2.5,1e-5,0x1.8p3,1.00000000000000000000000001]")),
              "[2.500000,0.000010,12.000000,1.000000]");
    EXPECT_EQ(Deserialize(R"({"a":1 .5})")["a"].ToDouble(), 1.5);
}

TEST_F(LocaleTest, BytesAbove127AreNoBlanks)
{
    EXPECT_EQ(Deserialize("[\"\xa0x\x85\"]")[0].ToString(), "\xa0x\x85");
    EXPECT_EQ(Deserialize("[1\xa0]").GetType(), NullVal);
}

}  // namespace
