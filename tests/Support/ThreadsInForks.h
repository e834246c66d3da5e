/// @file
/// Lets tests start threads in the forked child of a process with threads, which the thread
/// sanitizer refuses by default. Include it in one file of the program.
#pragma once

// NOLINTNEXTLINE(bugprone-reserved-identifier,misc-definitions-in-headers)
extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0:atexit_sleep_ms=0";
}
