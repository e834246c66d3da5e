/// @file
/// What the programs that measure log lines share: the line, the threads that produce it, and the
/// subjects that both programs measure. A subject has Write(number), which passes one line on, and
/// Finish(), which returns when the last line has been written.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

#include "Tolvex/Log/Logger.h"

namespace Tolvex::Benchmarks {

inline const std::string payload =
    "the text of a line that is about as long as such lines are, number ";

/// A line as the logger writes it.
inline const std::string composedLine = "[2024-05-01 12:00:07][ERROR][#WNET]" + payload + "1234\n";

inline std::string ScratchPath()
{
    return (std::filesystem::temp_directory_path() / "tolvex-benchmark.log").string();
}

/// What a line needs of the system.
inline void AppendToFile(const char* path, std::string_view text)
{
    const int file = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (write(file, text.data(), text.size()) < 0) {
        std::abort();
    }
    close(file);
}

/// Starts threads that run produce(number) at once. Destroying the result joins them.
template <typename Produce>
std::vector<std::jthread> StartProducers(std::size_t count, Produce produce)
{
    std::vector<std::jthread> threads;
    for (std::size_t number = 0; number < count; ++number) {
        threads.emplace_back(produce, number);
    }
    return threads;
}

/// Subject: the file logger, one line in four steps.
class TolvexFourSteps
{
public:
    TolvexFourSteps()
    {
        if (!logger.EnableFile(ScratchPath())) {
            std::abort();
        }
    }

    TolvexFourSteps(const TolvexFourSteps&) = delete;
    TolvexFourSteps& operator=(const TolvexFourSteps&) = delete;
    ~TolvexFourSteps() { logger.CloseFile(); }

    void Write(int number)
    {
        logger.WriteHeader(Ilog::LogType::Error);
        logger << LogModule::WNET << payload << number << std::endl;
    }

    void Finish()
    {
        // The next header comes through when the last line has been written.
        logger.WriteHeader(Ilog::LogType::Error);
        logger.DropLine();
    }

private:
    Ilog::Logger& logger = *Ilog::Logger::GetInstance();
};

/// Subject: a ready-made line is handed to a second thread, which opens, appends and closes.
///
/// One line is in flight: a producer waits until the line before has been written.
/// @tparam Token  Has the constructor, acquire() and release() of std::binary_semaphore.
template <typename Token>
class HandOver
{
public:
    HandOver() : writer([this] { Run(); }) {}
    HandOver(const HandOver&) = delete;
    HandOver& operator=(const HandOver&) = delete;

    ~HandOver()
    {
        Pass({});
        writer.join();
    }

    void Write(int) { Pass(composedLine); }

    /// Hands over a line. An empty one ends the thread that writes.
    void Pass(std::string_view text)
    {
        idle.acquire();
        line.assign(text);
        ready.release();
    }

    void Finish()
    {
        idle.acquire();
        idle.release();
    }

private:
    void Run()
    {
        for (ready.acquire(); !line.empty(); ready.acquire()) {
            AppendToFile(path.c_str(), line);
            idle.release();
        }
    }

    const std::string path = ScratchPath();
    std::string line;  ///< shared: the tokens guard it; empty ends the writer
    Token idle{1};     ///< there while no line is in flight
    Token ready{0};    ///< there while a line waits for the writer
    std::thread writer;
};

}  // namespace Tolvex::Benchmarks
