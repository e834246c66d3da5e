/// @file
/// A log policy that keeps its lines, and functions that take log lines apart.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Log/LoggerBase.h"

#include "tests/Support/Patience.h"

namespace Tolvex::Support {

/// Records every call of a logger to its policy.
/// @par Thread safety
/// Thread-safe, except onWrite: set it while the logger is disabled.
class CapturingPolicy : public Ilog::ILogPolicy
{
public:
    void SetOutput(const std::string& name) override
    {
        const std::lock_guard lock(mutex);
        outputs.push_back(name);
    }

    void Write(const std::string& line) override
    {
        if (onWrite) {
            onWrite(line);
        }
        const std::lock_guard lock(mutex);
        lines.push_back(line);
    }

    void Close() override
    {
        const std::lock_guard lock(mutex);
        ++closes;
    }

    void WriteHeader(Ilog::LogType type) override
    {
        const std::lock_guard lock(mutex);
        types.push_back(type);
    }

    std::vector<std::string> Lines() const
    {
        const std::lock_guard lock(mutex);
        return lines;
    }

    std::size_t LineCount() const
    {
        const std::lock_guard lock(mutex);
        return lines.size();
    }

    std::vector<std::string> Outputs() const
    {
        const std::lock_guard lock(mutex);
        return outputs;
    }

    std::vector<Ilog::LogType> Types() const
    {
        const std::lock_guard lock(mutex);
        return types;
    }

    int Closes() const
    {
        const std::lock_guard lock(mutex);
        return closes;
    }

    std::function<void(const std::string&)> onWrite;

private:
    mutable std::mutex mutex;
    std::vector<std::string> lines;
    std::vector<std::string> outputs;
    std::vector<Ilog::LogType> types;
    int closes = 0;
};

using CapturingLogger = Ilog::LoggerBase<CapturingPolicy>;

/// Writes one complete line, or nothing while the logger is disabled.
inline void WriteLine(CapturingLogger& logger, const std::string& text,
                      Ilog::LogType type = Ilog::LogType::Info)
{
    logger.WriteHeader(type);
    logger << text << std::endl;
}

/// Waits until count lines have been written. @return all lines written so far.
inline std::vector<std::string> AwaitLines(CapturingLogger& logger, std::size_t count)
{
    CapturingPolicy& policy = logger.GetPolicy();
    Eventually([&] { return policy.LineCount() >= count; });
    return policy.Lines();
}

/// @return whether line begins with characters of the kinds that pattern names: 9 is any digit.
inline bool BeginsLike(std::string_view line, std::string_view pattern)
{
    if (line.size() < pattern.size()) {
        return false;
    }
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        const bool isDigit = line[at] >= '0' && line[at] <= '9';
        if (pattern[at] == '9' ? !isDigit : line[at] != pattern[at]) {
            return false;
        }
    }
    return true;
}

/// @return a log line without its date and temperature, or "?" and the line if it has no date.
///
/// Uses no regular expressions: they took most of the time of tests with many lines.
inline std::string WithoutDate(const std::string& line)
{
    constexpr std::string_view date = "[9999-99-99 99:99:99]";
    if (!BeginsLike(line, date)) {
        return "?" + line;
    }
    const std::string_view rest = std::string_view(line).substr(date.size());
    for (const std::string_view temperature : {"[9C]", "[99C]", "[-9C]"}) {
        if (BeginsLike(rest, temperature)) {
            return std::string(rest.substr(temperature.size()));
        }
    }
    return std::string(rest);
}

/// @return the lines written so far, without their dates.
inline std::vector<std::string> TextsOf(CapturingLogger& logger)
{
    std::vector<std::string> lines = logger.GetPolicy().Lines();
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutDate);
    return lines;
}

/// Runs work, a void(CapturingLogger&), with a new logger and waits until it has written count
/// lines.
/// @return those lines without dates.
template <typename Work>
std::vector<std::string> LinesOf(std::size_t count, Work work)
{
    CapturingLogger logger;
    EXPECT_TRUE(logger.Enable());
    work(logger);
    AwaitLines(logger, count);
    logger.Close();
    return TextsOf(logger);
}

}  // namespace Tolvex::Support
