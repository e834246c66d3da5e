// How many instructions does each of these operations take on the device's processor?
#include <array>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <thread>
#include <unistd.h>

#include "Tolvex/Crypto/Crypto.h"
#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Util/CircularBuffer.h"
#include "Tolvex/Util/UtilTime.h"

#include "benchmarks/Instructions/Operations.h"

namespace {

using namespace Tolvex::Benchmarks;
using Tolvex::LogModule;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

constexpr const char* payload =
    "the text of a line that is about as long as such lines are, number ";

/// A path in a directory that is removed at the end.
class Scratch
{
public:
    Scratch() { std::filesystem::create_directory(directory); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { std::filesystem::remove_all(directory); }

    const std::string& Path() const { return path; }

private:
    // Always of the same length, so that the process id does not change the counts.
    const std::string directory =
        std::filesystem::temp_directory_path() / std::to_string(10000000 + getpid());
    const std::string path = directory + "/log";
};

void RunLogged(int count, void (*writeLine)(int line))
{
    const Scratch scratch;
    Logger& logger = *Logger::GetInstance();
    logger.EnableFile(scratch.Path());
    for (int i = 0; i < count; ++i) {
        writeLine(1000000 + i);
    }
    // Waits until the writer has written the last line.
    logger.WriteHeader(LogType::Error);
    logger.DropLine();
    logger.CloseFile();
}

void LogByFourSteps(int line)
{
    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(LogType::Error);
    logger << LogModule::WNET << payload << line << std::endl;
}

void KeepByFourSteps(int count)
{
    Logger& logger = *Logger::GetInstance();
    logger.EnableBlackBox(1000);
    for (int i = 0; i < count; ++i) {
        LogByFourSteps(1000000 + i);
    }
    logger.CloseBlackBox();
}

void LogAndKeep(int count)
{
    Logger& logger = *Logger::GetInstance();
    logger.EnableBlackBox(1000);
    RunLogged(count, &LogByFourSteps);
    logger.CloseBlackBox();
}

void LogByLogLine(int line)
{
    LogLine(LogType::Error, LogModule::WNET) << payload << line;
}

void LogDroppedHeader(int)
{
    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(LogType::Error);
    logger.DropLine();
}

/// The same line with the C library alone: the floor. The time of the header is given.
void LogFloor(int count)
{
    const Scratch scratch;
    const std::time_t second = 1714557607;
    tm local{};
    localtime_r(&second, &local);
    for (int i = 0; i < count; ++i) {
        std::array<char, 256> text;
        const int length = std::snprintf(
            text.data(), text.size(), "[%04d-%02d-%02d %02d:%02d:%02d][ERROR][#%s]%s%d\n",
            local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
            local.tm_sec, "WNET", payload, 1000000 + i);
        const int file =
            open(scratch.Path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
        if (write(file, text.data(), static_cast<std::size_t>(length)) < 0) {
            std::abort();
        }
        close(file);
    }
}

void LogDisabled(int count)
{
    for (int i = 0; i < count; ++i) {
        LogByFourSteps(i);
    }
}

void MakeTimeStamp(int count)
{
    for (int i = 0; i < count; ++i) {
        std::string text = Tolvex::Util::NewDate("%Y-%m-%d %H:%M:%S");
        Keep(text);
    }
}

void AddToRing(int count)
{
    std::thread([] {}).join();  // makes the C++ library count references atomically
    Tolvex::Util::CircularBuffer<std::shared_ptr<int>> ring(64);
    ring.SetUnallocCallback([](std::shared_ptr<int>& slot) { slot.reset(); });
    const auto frame = std::make_shared<int>(0);
    for (int i = 0; i < count; ++i) {
        ring.AddNext(frame);
    }
}

void PassSemaphore(int count)
{
    Tolvex::Interfaces::ISemaphore semaphore(0);
    for (int i = 0; i < count; ++i) {
        semaphore.Notify();
        semaphore.Wait();
    }
}

void EncodeKilobyte(int count)
{
    const std::string message(1024, 'm');
    for (int i = 0; i < count; ++i) {
        std::string text = Tolvex::Crypto::Base64EncodeLine(message.data(), message.size());
        Keep(text);
    }
}

void DecodeKilobyte(int count)
{
    const std::string message(1024, 'm');
    const std::string text = Tolvex::Crypto::Base64EncodeLine(message.data(), message.size());
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        Tolvex::Crypto::Base64Decode(text, bytes);
        Keep(bytes);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    return RunOperation(
        {{"log-line", 2000, [](int count) { RunLogged(count, &LogByFourSteps); }},
         {"log-line-object", 2000, [](int count) { RunLogged(count, &LogByLogLine); }},
         {"log-black-box", 20000, &KeepByFourSteps},
         {"log-file-and-black-box", 2000, &LogAndKeep},
         {"log-floor", 2000, &LogFloor},
         {"log-header-dropped", 2000, [](int count) { RunLogged(count, &LogDroppedHeader); }},
         {"log-disabled", 100000, &LogDisabled},
         {"time-stamp", 2000, &MakeTimeStamp},
         {"ring-add", 100000, &AddToRing},
         {"semaphore-pair", 100000, &PassSemaphore},
         {"base64-encode-1KB", 2000, &EncodeKilobyte},
         {"base64-decode-1KB", 2000, &DecodeKilobyte}},
        argc, argv);
}
