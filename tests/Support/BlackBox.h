/// @file
/// The black box of the log, for one test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/CapturingPolicy.h"

namespace Tolvex::Support {

/// Keeps the last lines while it exists.
class OpenBlackBox
{
public:
    explicit OpenBlackBox(std::size_t lines)
    {
        EXPECT_TRUE(Ilog::Logger::GetInstance()->EnableBlackBox(lines));
    }
    ~OpenBlackBox() { Ilog::Logger::GetInstance()->CloseBlackBox(); }

    OpenBlackBox(const OpenBlackBox&) = delete;
    OpenBlackBox& operator=(const OpenBlackBox&) = delete;
};

/// @return the lines that the black box keeps, without their dates.
inline std::vector<std::string> LastLines()
{
    std::vector<std::string> lines = Ilog::Logger::GetInstance()->GetLastLines();
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutDate);
    return lines;
}

}  // namespace Tolvex::Support
