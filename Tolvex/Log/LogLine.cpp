#include "Tolvex/Log/LogLine.h"

#include <algorithm>
#include <exception>
#include <locale>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Log/Logger.h"

namespace Tolvex::Ilog {

LogLine::Text::int_type LogLine::Text::overflow(int_type character)
{
    if (traits_type::eq_int_type(character, traits_type::eof())) {
        return traits_type::not_eof(character);  // GCOV_EXCL_LINE: no std::ostream asks for this
    }

    const std::string_view collected = View();
    std::string larger;
    larger.reserve(2 * collected.size());
    larger.assign(collected);
    larger.push_back(traits_type::to_char_type(character));
    const std::size_t used = larger.size();
    larger.resize(larger.capacity());

    grown = std::move(larger);
    setp(grown.data(), grown.data() + grown.size());
    // In steps of the int that pbump() takes.
    for (std::size_t left = used; left != 0;) {
        const int step = static_cast<int>(std::min<std::size_t>(left, 1U << 30U));
        pbump(step);
        left -= static_cast<std::size_t>(step);
    }
    return character;
}

LogLine::LogLine(LogType type, std::optional<LogModule> module)
    : lineType(type), lineModule(module), stream(&text)
{
    std::optional<std::locale> locale;
    Logger::GetInstance()->ForEachEnabled(
        [&locale](const LoggerCore& core) { locale = core.Locale(); });
    if (!locale) {
        stream.rdbuf(nullptr);  // The stream is bad now, so nothing is formatted.
    } else if (stream.getloc() != *locale) {
        stream.imbue(*locale);  // as a line that is written in four steps
    }
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
