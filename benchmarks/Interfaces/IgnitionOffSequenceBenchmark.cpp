#include "Tolvex/Interfaces/IgnitionOffSequence.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <semaphore>
#include <string>
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

// How much longer than the sum of the budgets does ignition-off take if every participant hangs?
// The file log is enabled, and there is a record.
void EveryParticipantHangs(benchmark::State& state)
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
BENCHMARK(EveryParticipantHangs)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
