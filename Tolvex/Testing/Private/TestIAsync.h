/// @file
/// The driver behind main.
#pragma once

#include <chrono>
#include <functional>
#include <iostream>
#include <thread>

#include "Tolvex/Util/IAsync.h"

/// Exercises IAsync: starts a callback with a delay of six seconds every second.
class TestIAsync
{
public:
    /// Runs the test; never returns.
    TestIAsync() { RunTest(); }

    /// Starts a callback and prints a line, once a second; never returns.
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

    /// Prints a line and deletes the object that called it, which may be null.
    void DoCallback(Tolvex::Util::IAsync* async)
    {
        std::cout << "I'm on Async Thread....." << std::endl;
        delete async;
    }
};
