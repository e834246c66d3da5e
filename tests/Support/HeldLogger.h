/// @file
/// A logger whose line is taken for as long as a test wants.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/Gate.h"

namespace Tolvex::Support {

/// A logger whose writer stays in the policy with the first line until the test releases it.
class HeldLogger
{
    Gate writing;
    Gate release;

public:
    HeldLogger()
    {
        logger.GetPolicy().onWrite = [this](const std::string& line) {
            if (line.ends_with("held\n")) {
                writing.Open();
                EXPECT_TRUE(release.Pass());
            }
        };
        EXPECT_TRUE(logger.Enable());
        WriteLine(logger, "held");
        EXPECT_TRUE(writing.Pass());
    }

    void LetGo() { release.Open(); }

    CapturingLogger logger;  ///< destroyed before the gates, which its writer uses
};

}  // namespace Tolvex::Support
