// Prints lines "figure NAME VALUE": the memory of an idle process, and the allocations of log lines
// and of JSON text. Run by scripts/bench.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "Tolvex/Tolvex.h"

#include "tests/Support/CountingNew.h"
#include "tests/Support/ScratchDirectory.h"

namespace {

using namespace Tolvex;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogType;
using Tolvex::Support::allocationCount;
using Tolvex::Support::ownAllocationCount;

template <typename Number>
void Report(const std::string& name, Number number)
{
    std::cout << "figure " << name << ' ' << number << '\n';
}

/// @return the number that follows a word in a file of /proc/self, or -1 if the word is missing.
long NumberIn(const std::string& file, const std::string& word)
{
    std::ifstream words("/proc/self/" + file);
    for (std::string found; words >> found;) {
        long number = -1;
        if (found == word && words >> number) {
            return number;
        }
    }
    return -1;
}

/// Resident pages, and the ones that no other process can share: heap, stacks, relocated tables.
void ReportMemory(const std::string& state)
{
    Report(state + "_resident_kib", NumberIn("smaps_rollup", "Rss:"));
    Report(state + "_anonymous_kib", NumberIn("smaps_rollup", "Anonymous:"));
    Report(state + "_threads", NumberIn("status", "Threads:"));
}

void WriteLine()
{
    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(LogType::Notice);
    logger << LogModule::Event << "a text that is longer than any string holds in itself " << 42
           << " " << 1.5 << std::endl;
}

/// Starts both loggers and the tick, logs one line, and then idles.
int MeasureIdle(const std::string& logFile)
{
    ReportMemory("loaded");
    if (!Logger::GetInstance()->EnableFile(logFile) || !Logger::GetInstance()->EnableConsole()) {
        return 1;
    }
    Util::Tick::Start();
    WriteLine();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    ReportMemory("idle");
    return 0;
}

/// @return the number of allocations of the calling thread for a hundred lines.
std::size_t AllocationsOfLines()
{
    const std::size_t before = ownAllocationCount;
    for (int line = 0; line < 100; ++line) {
        WriteLine();
    }
    return ownAllocationCount - before;
}

/// Once a second a line formats a new time stamp: the minimum and the maximum are reported.
int MeasureLines(const std::string& logFile)
{
    if (!Logger::GetInstance()->EnableFile(logFile)) {
        return 1;
    }
    AllocationsOfLines();

    std::size_t least = AllocationsOfLines();
    std::size_t most = least;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < end) {
        const std::size_t allocations = AllocationsOfLines();
        least = std::min(least, allocations);
        most = std::max(most, allocations);
    }
    Report("log_allocations_per_line", static_cast<double>(least) / 100);
    Report("log_allocations_per_new_second", most - least);
    return 0;
}

double PerKib(std::size_t allocations, std::size_t bytes)
{
    return static_cast<double>(allocations) * 1024 / static_cast<double>(bytes);
}

int MeasureJson(const std::string& name, const std::string& fileName)
{
    const std::string text = Support::ReadFile(fileName);
    if (text.empty()) {
        return 1;
    }

    const std::size_t beforeReading = allocationCount;
    const Json::Value value = Json::Deserialize(text);
    const std::size_t beforeWriting = allocationCount;
    const std::string written = Json::Serialize(value);
    const std::size_t atEnd = allocationCount;

    const std::string prefix = "json_" + name + "_allocations_per_kib_";
    Report(prefix + "read", PerKib(beforeWriting - beforeReading, text.size()));
    Report(prefix + "written", PerKib(atEnd - beforeWriting, written.size()));
    return written.empty() ? 1 : 0;
}

}  // namespace

int main(int count, char** arguments)
{
    const std::string task = count > 2 ? arguments[1] : "";
    if (task == "idle") {
        return MeasureIdle(arguments[2]);
    }
    if (task == "lines") {
        return MeasureLines(arguments[2]);
    }
    if (task == "json" && count == 4) {
        return MeasureJson(arguments[2], arguments[3]);
    }
    std::cerr << "usage: Package.Footprint idle LOGFILE | lines LOGFILE | json NAME FILE\n";
    return 2;
}
