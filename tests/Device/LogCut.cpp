// Logs lines for ever on the emulated board and says on the console which lines have been written,
// so that a power cut shows how many of them are lost; scripts/device --log-cuts runs it.
//
// usage: Device.LogCut FILE
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

constexpr std::chrono::milliseconds betweenLines(20);

/// Processor time of this process in microseconds.
double ProcessorTime()
{
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

}  // namespace

int main(int argc, char** argv)
{
    Logger& logger = *Logger::GetInstance();
    if (argc != 2 || !logger.EnableFile(argv[1])) {
        std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
        return 2;
    }
    double used = 0;
    for (int line = 1;; ++line) {
        const double start = ProcessorTime();
        LogLine(LogType::Info, LogModule::Event) << "line " << line << " and some more text";
        // The next header comes through only when the writer has written the line.
        logger.WriteHeader(LogType::Info);
        logger.DropLine();
        used += ProcessorTime() - start;
        std::printf("written %d, %.0f us each\n", line, used / line);
        std::fflush(stdout);
        std::this_thread::sleep_for(betweenLines);
    }
}
