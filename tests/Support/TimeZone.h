/// @file
/// Running a part of a test in another time zone.
#pragma once

#include <cstdlib>
#include <ctime>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"

namespace Tolvex::Support {

// Spelled out, so that no time zone files are needed.
constexpr const char* utcZone = "UTC0";
constexpr const char* berlinZone = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kolkataZone = "IST-5:30";
constexpr const char* losAngelesZone = "PST8PDT,M3.2.0,M11.1.0";

/// Runs body, a void(), in a child process with the given time zone. A failure in the child fails
/// the calling test. A child is needed because the C library may keep the zone that it used first.
template <typename Body>
void InTimeZone(const char* zone, Body body)
{
    const ChildResult result = RunInChild([zone, &body] {
        setenv("TZ", zone, 1);
        tzset();
        body();
        return 0;
    });
    EXPECT_TRUE(result.Succeeded()) << "in time zone " << zone << "\n" << result.output;
}

}  // namespace Tolvex::Support
