/// @file
/// For tests that start threads in a child that a process with threads has forked: the thread
/// sanitizer refuses that unless told otherwise. Included by one file of the program.
#pragma once

// NOLINTNEXTLINE(bugprone-reserved-identifier,misc-definitions-in-headers)
extern "C" const char* __tsan_default_options()
{
    return "die_after_fork=0:atexit_sleep_ms=0";
}
