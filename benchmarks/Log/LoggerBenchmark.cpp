// What does a log line cost that is opened, appended and closed for every line, against the floor
// of the same system calls on a second thread, and against loggers that flush per line? What does a
// line cost that stays in memory?
#include "Tolvex/Log/Logger.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <semaphore>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <glog/logging.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "Tolvex/Log/LogLine.h"

#include "benchmarks/Log/Lines.h"

namespace {

using Tolvex::LogModule;
using Tolvex::Benchmarks::AppendToFile;
using Tolvex::Benchmarks::composedLine;
using Tolvex::Benchmarks::HandOver;
using Tolvex::Benchmarks::payload;
using Tolvex::Benchmarks::ScratchPath;
using Tolvex::Benchmarks::StartProducers;
using Tolvex::Benchmarks::TolvexFourSteps;
using Tolvex::Ilog::LogDurability;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

constexpr int linesPerThread = 2000;
constexpr std::chrono::milliseconds syncInterval(500);

/// Has producers write lines at once and reports the time of a line and the callers' latencies.
template <typename WriteLine, typename Finish>
void Measure(benchmark::State& state, WriteLine writeLine, Finish finish)
{
    using Clock = std::chrono::steady_clock;
    const auto producers = static_cast<std::size_t>(state.range(0));
    std::vector<double> latencies;
    for ([[maybe_unused]] auto round : state) {
        std::vector<std::vector<double>> own(producers);
        const auto produce = [&](std::size_t number) {
            std::vector<double>& times = own[number];
            times.reserve(linesPerThread);
            for (int line = 0; line < linesPerThread; ++line) {
                const auto start = Clock::now();
                writeLine(line);
                times.push_back(std::chrono::duration<double>(Clock::now() - start).count());
            }
        };
        const auto start = Clock::now();
        StartProducers(producers, produce).clear();  // joins them
        finish();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        for (const std::vector<double>& times : own) {
            latencies.insert(latencies.end(), times.begin(), times.end());
        }
    }
    std::sort(latencies.begin(), latencies.end());
    const auto percentile = [&](double part) {
        return latencies[static_cast<std::size_t>(part *
                                                  static_cast<double>(latencies.size() - 1))];
    };
    const auto lines = state.iterations() * state.range(0) * linesPerThread;
    state.SetItemsProcessed(lines);
    state.counters["per_line"] = benchmark::Counter(
        static_cast<double>(lines), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["p50"] = percentile(0.5);
    state.counters["p99"] = percentile(0.99);
    state.counters["p99.9"] = percentile(0.999);
    std::filesystem::remove(ScratchPath());
}

void BM_SystemCalls(benchmark::State& state)
{
    const std::string path = ScratchPath();
    Measure(
        state, [&](int) { AppendToFile(path.c_str(), composedLine); }, [] {});
}

/// Subject: the file logger, one line by LogLine.
class TolvexLogLine : public TolvexFourSteps
{
public:
    void Write(int number) { LogLine(LogType::Error, LogModule::WNET) << payload << number; }
};

/// Subject: the black box alone.
class TolvexBlackBox
{
public:
    TolvexBlackBox()
    {
        if (!logger.EnableBlackBox(1000)) {
            std::abort();
        }
    }

    TolvexBlackBox(const TolvexBlackBox&) = delete;
    TolvexBlackBox& operator=(const TolvexBlackBox&) = delete;
    ~TolvexBlackBox() { logger.CloseBlackBox(); }

    void Write(int number)
    {
        logger.WriteHeader(LogType::Error);
        logger << LogModule::WNET << payload << number << std::endl;
    }

    void Finish() {}

private:
    Logger& logger = *Logger::GetInstance();
};

/// Subject: the file logger and the black box.
class TolvexFileAndBlackBox : public TolvexFourSteps
{
    const TolvexBlackBox blackBox;
};

/// Subject: LogLine with a durability and a size limit.
template <LogDurability mode, std::uint64_t sizeLimit>
class TolvexToMedium : public TolvexLogLine
{
public:
    TolvexToMedium()
    {
        Logger::GetInstance()->SetFileDurability(mode, syncInterval);
        Logger::GetInstance()->SetFileSizeLimit(sizeLimit, 1);
    }
    TolvexToMedium(const TolvexToMedium&) = delete;
    TolvexToMedium& operator=(const TolvexToMedium&) = delete;
    ~TolvexToMedium()
    {
        Logger::GetInstance()->SetFileDurability(LogDurability::None);
        Logger::GetInstance()->SetFileSizeLimit(0, 0);
        std::filesystem::remove(ScratchPath() + ".1");
    }
};

template <typename Subject>
void MeasureSubject(benchmark::State& state)
{
    Subject subject;
    Measure(
        state, [&](int line) { subject.Write(line); }, [&] { subject.Finish(); });
}

/// What spdlog needs to open and close the file for every line.
class ReopeningSink : public spdlog::sinks::base_sink<std::mutex>
{
protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t text;
        formatter_->format(message, text);
        std::ofstream(ScratchPath(), std::ios::app | std::ios::binary)
            .write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    void flush_() override {}
};

void BM_SpdlogReopening(benchmark::State& state)
{
    spdlog::logger logger("reopening", std::make_shared<ReopeningSink>());
    logger.set_pattern("[%Y-%m-%d %H:%M:%S][%l][#WNET]%v");
    Measure(
        state, [&](int line) { logger.error("{}{}", payload, line); }, [] {});
}

void BM_SpdlogFlushed(benchmark::State& state)
{
    spdlog::logger logger("flushed",
                          std::make_shared<spdlog::sinks::basic_file_sink_mt>(ScratchPath()));
    logger.set_pattern("[%Y-%m-%d %H:%M:%S][%l][#WNET]%v");
    logger.flush_on(spdlog::level::trace);
    Measure(
        state, [&](int line) { logger.error("{}{}", payload, line); }, [] {});
}

void BM_GlogFlushed(benchmark::State& state)
{
    static const bool initialised = [] {
        FLAGS_logtostderr = false;
        FLAGS_alsologtostderr = false;
        FLAGS_stderrthreshold = 4;
        FLAGS_logbuflevel = -1;  // flush every line
        google::SetLogDestination(google::GLOG_INFO, ScratchPath().c_str());
        google::InitGoogleLogging("benchmark");
        return true;
    }();
    benchmark::DoNotOptimize(initialised);
    Measure(
        state, [&](int line) { LOG(INFO) << "[#WNET]" << payload << line; }, [] {});
}

BENCHMARK(BM_SystemCalls)->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(MeasureSubject<HandOver<std::binary_semaphore>>)
    ->Name("BM_Floor")
    ->Arg(1)
    ->Arg(4)
    ->UseManualTime();
BENCHMARK(MeasureSubject<TolvexFourSteps>)->Name("BM_Logger")->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(MeasureSubject<TolvexLogLine>)->Name("BM_LogLine")->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(MeasureSubject<TolvexBlackBox>)->Name("BM_BlackBox")->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(MeasureSubject<TolvexFileAndBlackBox>)
    ->Name("BM_FileAndBlackBox")
    ->Arg(1)
    ->Arg(4)
    ->UseManualTime();
// What does it cost to bring the lines to the medium? The directory for temporary files has to be
// on one: a tmpfs syncs nothing.
BENCHMARK(MeasureSubject<TolvexToMedium<LogDurability::IgnitionOff, 0>>)
    ->Name("BM_LineIgnitionOff")
    ->Arg(1)
    ->UseManualTime();
BENCHMARK(MeasureSubject<TolvexToMedium<LogDurability::Interval, 0>>)
    ->Name("BM_LineInterval")
    ->Arg(1)
    ->UseManualTime();
BENCHMARK(MeasureSubject<TolvexToMedium<LogDurability::EachLine, 0>>)
    ->Name("BM_LineEach")
    ->Arg(1)
    ->UseManualTime();
// What does a size limit cost: a file that is never full, and one that is renamed every 100 lines?
BENCHMARK(MeasureSubject<TolvexToMedium<LogDurability::None, 1000000000>>)
    ->Name("BM_LineBelowLimit")
    ->Arg(1)
    ->UseManualTime();
BENCHMARK(MeasureSubject<TolvexToMedium<LogDurability::None, 11000>>)
    ->Name("BM_LineRenaming")
    ->Arg(1)
    ->UseManualTime();
BENCHMARK(BM_SpdlogReopening)->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(BM_SpdlogFlushed)->Arg(1)->Arg(4)->UseManualTime();
BENCHMARK(BM_GlogFlushed)->Arg(1)->Arg(4)->UseManualTime();

bool flag = false;

[[gnu::noinline]] void TestFlag()
{
    if (*const_cast<volatile bool*>(&flag)) {
        std::abort();
    }
    asm volatile("");  // keeps the call
}

void BM_FiveCallsThatTestAFlag(benchmark::State& state)
{
    for ([[maybe_unused]] auto round : state) {
        TestFlag();
        TestFlag();
        TestFlag();
        TestFlag();
        TestFlag();
    }
}

void BM_LineWhileDisabled(benchmark::State& state)
{
    Logger& logger = *Logger::GetInstance();
    logger.CloseFile();
    for ([[maybe_unused]] auto round : state) {
        logger.WriteHeader(LogType::Error);
        logger << LogModule::WNET << "text" << 42 << std::endl;
    }
}

BENCHMARK(BM_FiveCallsThatTestAFlag);
BENCHMARK(BM_LineWhileDisabled);

}  // namespace
