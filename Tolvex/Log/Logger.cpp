#include "Tolvex/Log/Logger.h"

#include <chrono>
#include <exception>
#include <memory>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/LoggerState.h"

namespace Tolvex::Ilog {

Logger* Logger::instance = nullptr;

Logger* Logger::Create()
{
    std::unique_ptr<Logger> made(new Logger);
    if (Base::SetSharedOnce(instance, made.get())) {
        static_cast<void>(made.release());  // never deleted
    }
    return Base::LoadShared(instance);
}

Logger::Logger()
{
    auto file = std::make_unique<LoggerBase<FileLogPolicy>>();
    file->SetTheadName("LOG_FILE");
    auto console = std::make_unique<LoggerBase<ConsoleLogPolicy>>();
    console->SetTheadName("LOG_CONSOLE");

    fileLogger = file.release();
    consoleLogger = console.release();
}

// Required: the instance pointer is not cleared.
Logger::~Logger()
{
    delete fileLogger;
    delete consoleLogger;
}

bool Logger::EnableFile(const std::string& fileName)
{
    return !fileName.empty() && fileLogger->core.Enable(&fileName);
}

/// Leaves no line open in one logger when an exception or a cancellation ends the call for another.
template <typename Action>
void Logger::Compose(const Action& action)
{
    try {
        ForEachEnabled(action);
    } catch (...) {
        DropLine();
        throw;
    }
}

void Logger::BeginLines(LogType type)
{
    // Both, before a lock is waited for: a line left open on the console would otherwise be held
    // while waiting for the file, against the order of the locks.
    ForEachEnabled([](LoggerCore& core) { core.EndOpenLine(); });

    Compose([type](LoggerCore& core) { core.WriteHeader(type); });
}

Logger& Logger::Append(const LogArgument& argument)
{
    Compose([&argument](LoggerCore& core) { core.Append(argument); });
    return *this;
}

void Logger::RunIgnitionOff()
{
    // Required: no module tag in this line, and the console goes on.
    constexpr std::string_view notice = "All triggers have been stopped";
    const Base::NoCancellation scope;
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    fileLogger->policy.BeginIgnitionOff();
    ForEachEnabled([](LoggerCore& core) { core.EndOpenLine(); });
    ForEachEnabled([&](LoggerCore& core) {
        try {
            core.WriteNotice(notice, &core == &fileLogger->core, deadline);
        } catch (const std::exception&) {
            // Without the notice: the file has to be closed all the same.
        }
    });
    fileLogger->core.Close(deadline);
}

}  // namespace Tolvex::Ilog
