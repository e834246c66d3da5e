#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <string>
#include <sys/file.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "Tolvex/Log/Logger.h"

namespace {

using namespace std::chrono_literals;
using Tolvex::Interfaces::IgnitionOffMode;
using Tolvex::Interfaces::IgnitionOffSequence;

constexpr int count = 20;
constexpr auto budget = 20ms;

/// Hangs until Leave() is called.
class Hanging : public IgnitionOffMode
{
public:
    void RunIgnitionOff() override
    {
        leave.acquire();
        ended.release();
    }

    void Leave()
    {
        leave.release();
        ended.acquire();
    }

private:
    std::binary_semaphore leave{0};
    std::binary_semaphore ended{0};
};

/// While it exists, a thread has a line of the log open, and the record is locked: a line about a
/// late participant and the new record wait.
class Obstacle
{
public:
    explicit Obstacle(const std::string& record)
        : file(open((record + ".new").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        flock(file, LOCK_EX);
        begun.acquire();
    }
    ~Obstacle()
    {
        close(file);
        leave.release();
        thread.join();
    }
    Obstacle(const Obstacle&) = delete;
    Obstacle& operator=(const Obstacle&) = delete;

private:
    const int file;
    std::binary_semaphore begun{0};
    std::binary_semaphore leave{0};
    std::thread thread = std::thread([this] {
        auto* const logger = Tolvex::Ilog::Logger::GetInstance();
        logger->WriteHeader(Tolvex::Ilog::LogType::Info);
        begun.release();
        leave.acquire();
        *logger << std::endl;
    });
};

/// The file log is enabled, and there is a record.
void HangAll(benchmark::State& state, bool logAndRecordToo)
{
    const std::string path = std::filesystem::temp_directory_path() / "tolvex-ignition-off";
    auto* const logger = Tolvex::Ilog::Logger::GetInstance();
    if (!logger->EnableFile(path + ".log")) {
        state.SkipWithError("no log");
    }
    for (auto _ : state) {
        std::vector<std::unique_ptr<Hanging>> all;
        IgnitionOffSequence sequence(path + ".record");
        for (int number = 0; number < count; ++number) {
            all.push_back(std::make_unique<Hanging>());
            sequence.Add(std::to_string(number), all.back().get(), budget);
        }
        const auto obstacle =
            logAndRecordToo ? std::make_unique<Obstacle>(path + ".record") : nullptr;
        const auto begin = std::chrono::steady_clock::now();
        sequence.RunIgnitionOff();
        const auto more = std::chrono::steady_clock::now() - begin - count * budget;
        state.SetIterationTime(std::chrono::duration<double>(more).count());
        for (const auto& hanging : all) {
            hanging->Leave();
        }
    }
    logger->CloseFile();
}

// How much longer than the sum of the budgets does ignition-off take if every participant hangs?
void EveryParticipantHangs(benchmark::State& state)
{
    HangAll(state, false);
}
BENCHMARK(EveryParticipantHangs)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

// The same if the log and the record hang, too?
void EveryParticipantTheLogAndTheRecordHang(benchmark::State& state)
{
    HangAll(state, true);
}
BENCHMARK(EveryParticipantTheLogAndTheRecordHang)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

}  // namespace
