#include "Tolvex/Log/LogLine.h"

#include <exception>
#include <locale>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Log/Logger.h"

namespace Tolvex::Ilog {

LogLine::Text::int_type LogLine::Text::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);  // No std::ostream asks for this.
    }

    std::string larger(2 * View().size(), '\0');
    char* const end = larger.data() + View().copy(larger.data(), View().size());
    *end = traits_type::to_char_type(character);
    grown = std::move(larger);
    begin = grown.data();
    setp(end + 1, begin + grown.size());
    return character;
}

// Without a buffer the stream has badbit set: nothing is formatted while all outputs are disabled.
LogLine::LogLine(LogType type, std::optional<LogModule> module)
    : lineType(type), lineModule(module), stream(nullptr)
{
    if (!Logger::AnyEnabled()) {
        return;
    }
    Logger::GetInstance()->ForEachEnabled([this](const LoggerCore& core) {
        stream.rdbuf(&text);
        if (const std::locale locale = core.Locale(); stream.getloc() != locale) {
            stream.imbue(locale);  // as for a line that is written in four steps
        }
    });
}

LogLine::LogLine(LogType type) : LogLine(type, std::nullopt) {}

LogLine::LogLine(LogType type, LogModule module) : LogLine(type, std::optional(module)) {}

LogLine::~LogLine()
{
    if (stream.rdbuf() == nullptr) {
        return;
    }
    const Base::NoCancellation scope;  // A cancellation that leaves a destructor ends the process.
    try {
        Write();
    } catch (const std::exception&) {
        // The line is lost; Logger holds no lock for it.
    }
}

void LogLine::Write()
{
    std::string_view line = text.View();
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
    }

    Logger& logger = *Logger::GetInstance();
    logger.WriteHeader(lineType);
    if (lineModule) {
        logger << *lineModule;
    }
    logger << line << std::endl;
}

}  // namespace Tolvex::Ilog
