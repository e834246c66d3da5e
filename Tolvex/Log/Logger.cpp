#include "Tolvex/Log/Logger.h"

#include <memory>

namespace Tolvex::Ilog {

namespace {

/// Leaves no line open when a call ends by an exception or a cancellation.
class LineGuard
{
public:
    explicit LineGuard(Logger& guarded) : logger(&guarded) {}
    ~LineGuard()
    {
        if (logger != nullptr) {
            logger->DropLine();
        }
    }

    LineGuard(const LineGuard&) = delete;
    LineGuard& operator=(const LineGuard&) = delete;

    void Dismiss() { logger = nullptr; }

private:
    Logger* logger;
};

}  // namespace

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
    return !fileName.empty() && fileLogger->ChangeOutput(fileName) && fileLogger->Enable();
}

bool Logger::EnableConsole()
{
    return consoleLogger->Enable();
}

void Logger::CloseFile()
{
    fileLogger->Close();
}

void Logger::CloseConsole()
{
    consoleLogger->Close();
}

void Logger::BeginLines(LogType type)
{
    // Both, before a lock is waited for: a line left open on the console would otherwise be held
    // while waiting for the file, against the order of the locks.
    fileLogger->FinishLine();
    consoleLogger->FinishLine();

    LineGuard guard(*this);
    fileLogger->WriteHeader(type);
    consoleLogger->WriteHeader(type);
    guard.Dismiss();
}

template <typename T>
Logger& Logger::PassToEach(T value)
{
    if (fileLogger->IsEnabled()) {
        *fileLogger << value;
    }
    if (consoleLogger->IsEnabled()) {
        *consoleLogger << value;
    }
    return *this;
}

Logger& Logger::Pass(LogModule module)
{
    return PassToEach(module);
}

Logger& Logger::Pass(const char* value)
{
    return PassToEach(value);
}

Logger& Logger::Pass(int value)
{
    return PassToEach(value);
}

Logger& Logger::Pass(double value)
{
    return PassToEach(value);
}

Logger& Logger::Pass(std::string_view value)
{
    return PassToEach(value);
}

Logger& Logger::Pass(std::ostream& (*manipulator)(std::ostream&))
{
    LineGuard guard(*this);
    PassToEach(manipulator);
    guard.Dismiss();
    return *this;
}

void Logger::DropLine()
{
    fileLogger->DropLine();
    consoleLogger->DropLine();
}

void Logger::RunIgnitionOff()
{
    WriteHeader(LogType::Notice);
    // Required: no module tag in this line, and the console goes on.
    *this << "All triggers have been stopped" << std::endl;
    fileLogger->Close();
}

}  // namespace Tolvex::Ilog
