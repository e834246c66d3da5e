#include "Tolvex/Log/Logger.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <new>
#include <system_error>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/BlackBox.h"
#include "Tolvex/Log/Private/LoggerState.h"

namespace Tolvex::Ilog {

namespace {

/// The black box, and its logger, which closes it at its end.
struct BlackBoxLogger : BlackBox, LoggerCore
{
    BlackBoxLogger(int* enabledCount, const LoggerCore& file)
        : LoggerCore(BlackBox::calls, static_cast<BlackBox*>(this), enabledCount, &file)
    {
    }
};

}  // namespace

Logger* Logger::instance = nullptr;
LoggerCore* Logger::blackBox = nullptr;
int Logger::enabledOutputs = 0;

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
    std::unique_ptr<LoggerBase<FileLogPolicy>> file(new LoggerBase<FileLogPolicy>(&enabledOutputs));
    file->SetTheadName("LOG_FILE");
    std::unique_ptr<LoggerBase<ConsoleLogPolicy>> console(
        new LoggerBase<ConsoleLogPolicy>(&enabledOutputs));
    console->SetTheadName("LOG_CONSOLE");

    fileLogger = file.release();
    consoleLogger = console.release();
}

// Required: the instance pointer is not cleared, so it dangles after the destruction.
Logger::~Logger()
{
    // A logger that lost the race in Create() leaves the outputs of the process as they are.
    if (this == Base::LoadShared(instance)) {
        CloseBlackBox();
    }
    delete fileLogger;
    delete consoleLogger;
}

bool Logger::EnableFile(const std::string& fileName)
{
    return !fileName.empty() && fileLogger->core.Enable(&fileName);
}

bool Logger::EnableConsole()
{
    return consoleLogger->Enable();
}

bool Logger::EnableBlackBox(std::size_t lines)
{
    if (lines == 0) {
        return false;
    }
    try {
        if (Base::LoadShared(blackBox) == nullptr) {
            auto made = std::make_unique<BlackBoxLogger>(&enabledOutputs, fileLogger->core);
            if (Base::SetSharedOnce(blackBox, made.get())) {
                static_cast<void>(made.release());
            }
        }
        const std::string output = std::to_string(lines);
        return Base::LoadShared(blackBox)->Enable(&output);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void Logger::CloseFile()
{
    fileLogger->Close();
}

void Logger::CloseConsole()
{
    consoleLogger->Close();
}

void Logger::CloseBlackBox()
{
    if (LoggerCore* const core = Base::LoadShared(blackBox)) {
        core->Close();
    }
}

bool Logger::SaveLastLines(const std::string& path) const
{
    const auto* const logger = static_cast<const BlackBoxLogger*>(Base::LoadShared(blackBox));
    if (logger == nullptr) {
        errno = ENODATA;
        return false;
    }
    return logger->Save(path);
}

std::vector<std::string> Logger::GetLastLines() const
{
    const auto* const logger = static_cast<const BlackBoxLogger*>(Base::LoadShared(blackBox));
    return logger == nullptr ? std::vector<std::string>() : logger->Lines();
}

void Logger::DropLine()
{
    // noexcept: ForEachEnabled() drops the lines again when an action throws.
    ForEachEnabled([](LoggerCore& core) noexcept { core.DropLine(); });
}

void Logger::BeginLines(LogType type)
{
    // First, before a line of another output is ended.
    bool nested = false;
    ForEachEnabled([&nested](const LoggerCore& core) { nested |= core.IsInUseByCaller(); });
    if (nested) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }

    // End all open lines before waiting for a lock. Otherwise the thread would hold the console's
    // line while it waits for the file's, against the order of the locks.
    ForEachEnabled([](LoggerCore& core) { core.EndOpenLine(); });

    ForEachEnabled([type](LoggerCore& core) { core.WriteHeader(type); });
}

Logger& Logger::Append(const LogArgument& argument)
{
    ForEachEnabled([&argument](LoggerCore& core) { core.Append(argument); });
    return *this;
}

void Logger::RunIgnitionOff()
{
    constexpr std::string_view notice = "All triggers have been stopped";
    const Base::NoCancellation scope;
    const auto deadline = std::chrono::steady_clock::now() + longestWait;
    const auto tryEach = [this](const auto& action) {
        ForEachEnabled([&action](LoggerCore& core) {
            try {
                action(core);
            } catch (const std::exception&) {
                core.DropLine();  // The file is closed nevertheless.
            }
        });
    };
    tryEach([](LoggerCore& core) { core.EndOpenLine(); });
    tryEach(
        [&](LoggerCore& core) { core.WriteNotice(notice, &core == &fileLogger->core, deadline); });
    fileLogger->core.Close(deadline);
}

}  // namespace Tolvex::Ilog
