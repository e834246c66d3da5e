/// @file
/// The driver behind main: starts a delayed callback every second, for ever. Not installed.
#pragma once

#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

#include "Tolvex/Util/IAsync.h"

/// Exercises IAsync: one six-second callback a second, each with a line of its own.
class TestIAsync
{
public:
    /// Runs the test; never returns.
    TestIAsync() { RunTest(); }

    /// Starts a callback and prints a line, once a second, for ever.
    void RunTest()
    {
        using namespace std::chrono_literals;
        while (true) {
            auto work = std::bind(&TestIAsync::DoCallback, this, std::placeholders::_1);
            new Tolvex::Util::IAsync(6000ms, work, nullptr);  // owned by its callback
            std::this_thread::sleep_for(1s);
            std::cout << "I'm on Main Thread....." << std::endl;
        }
    }

    /// Prints its line and deletes the object that called it; null is let through.
    void DoCallback(Tolvex::Util::IAsync* async)
    {
        std::cout << "I'm on Async Thread....." << std::endl;
        delete async;
    }
};
