// Logs lines for ever on the emulated board and says on the console which lines have been written,
// and which ones a power cut must not take, so that it shows how many are lost; scripts/device
// --log-cuts runs it.
//
// usage: Device.LogCut FILE none|ignition|interval|each
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <string>
#include <thread>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::LogDurability;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenLines(20);
constexpr std::chrono::milliseconds interval(500);
constexpr std::chrono::milliseconds longestSync(2000);  // on the emulated card, with a busy host
constexpr std::chrono::milliseconds ignitionOffBound(2100);
constexpr int linesOfADrive = 100;

const std::map<std::string, LogDurability> modes = {{"none", LogDurability::None},
                                                    {"ignition", LogDurability::IgnitionOff},
                                                    {"interval", LogDurability::Interval},
                                                    {"each", LogDurability::EachLine}};

/// Processor time of this process in microseconds.
double ProcessorTime()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

/// Turns the ignition off and on. @return whether all lines before are on the medium.
bool EndDrive(Logger& logger, const char* file)
{
    const auto start = Clock::now();
    logger.RunIgnitionOff();
    const bool inTime = Clock::now() - start < ignitionOffBound;
    return logger.EnableFile(file) && inTime;
}

}  // namespace

int main(int argc, char** argv)
{
    Logger& logger = *Logger::GetInstance();
    const auto mode = argc == 3 ? modes.find(argv[2]) : modes.end();
    if (mode == modes.end() || !logger.EnableFile(argv[1])) {
        std::fprintf(stderr, "usage: %s FILE none|ignition|interval|each\n", argv[0]);
        return 2;
    }
    logger.SetFileDurability(mode->second, interval);

    const double begun = ProcessorTime();
    int safe = 0;                              // lines that a power cut must not take
    std::map<int, Clock::time_point> written;  // those of the last seconds
    for (int line = 1;; ++line) {
        LogLine(LogType::Info, LogModule::Event) << "line " << line << " and some more text";
        // The next header comes through only when the writer has written the line.
        logger.WriteHeader(LogType::Info);
        logger.DropLine();

        switch (mode->second) {
            case LogDurability::None:
                break;
            case LogDurability::IgnitionOff:
                if (line % linesOfADrive == 0 && EndDrive(logger, argv[1])) {
                    safe = line;
                }
                break;
            case LogDurability::Interval:
                written[line] = Clock::now();
                while (!written.empty() &&
                       Clock::now() - written.begin()->second > interval + longestSync) {
                    safe = written.begin()->first;
                    written.erase(written.begin());
                }
                break;
            case LogDurability::EachLine:
                safe = line;
                break;
        }
        // The processor time of all threads, that of syncs and of these reports included.
        std::printf("written %d, safe %d, %.0f us each\n", line, safe,
                    (ProcessorTime() - begun) / line);
        std::fflush(stdout);
        std::this_thread::sleep_for(betweenLines);
    }
}
