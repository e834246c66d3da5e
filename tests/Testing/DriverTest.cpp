// The driver's output: its lines, their order and their times.

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

struct Line
{
    std::string text;
    Clock::duration age;  ///< since the driver was started
};

/// Reads the driver's lines until there are enough of both kinds, then closes the pipe, which ends
/// the driver at its next line.
std::vector<Line> DriverLines(int mainLines, int asyncLines)
{
    std::vector<Line> lines;
    const auto start = Clock::now();
    FILE* driver = popen("exec timeout -s KILL 50 " TOLVEX_DRIVER_COMMAND " 2>&1", "r");
    char buffer[256];
    while ((mainLines > 0 || asyncLines > 0) &&
           std::fgets(buffer, sizeof buffer, driver) != nullptr) {
        lines.push_back({buffer, Clock::now() - start});
        mainLines -= lines.back().text == "I'm on Main Thread.....\n" ? 1 : 0;
        asyncLines -= lines.back().text == "I'm on Async Thread.....\n" ? 1 : 0;
    }
    pclose(driver);
    return lines;
}

TEST(DriverTest, MainLineComesEverySecondAndAsyncLineFromTheSixthOn)
{
    const std::vector<Line> lines = DriverLines(9, 3);

    int mains = 0;
    int asyncs = 0;
    for (const Line& line : lines) {
        if (line.text == "I'm on Main Thread.....\n") {
            ++mains;
            EXPECT_GE(line.age, mains * 1s) << "main line " << mains;
        } else if (line.text == "I'm on Async Thread.....\n") {
            // The n-th callback was made no earlier than n - 1 seconds after the start.
            EXPECT_GE(line.age, asyncs * 1s + 6s) << "async line " << asyncs + 1;
            ++asyncs;
        } else {
            ADD_FAILURE() << "unexpected: " << line.text;
        }
    }
    EXPECT_GE(mains, 9);
    EXPECT_GE(asyncs, 3);
}

}  // namespace
