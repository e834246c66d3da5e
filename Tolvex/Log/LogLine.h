#pragma once

#include <array>
#include <ios>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "Tolvex/Log/LogType.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Ilog {

/// One log line: collects what is streamed into it, and writes the line through Logger when it is
/// destroyed.
///
/// @code
/// LogLine(LogType::Warning, LogModule::CELL) << "signal " << -113 << " dBm";
/// @endcode
/// Takes whatever an std::ostream takes, manipulators included. While the text is collected no lock
/// is held, so an exception, a return, or another line that begins before the end does no harm. A
/// newline at the very end of the text, such as from std::endl, is the line's own and not written
/// twice.
///
/// The destructor blocks as Logger::WriteHeader() does. Without an enabled logger at the time of
/// construction nothing is collected. Texts of up to 256 characters use no heap memory.
/// @par Errors
/// None: a line that cannot be written is lost. If memory runs out, the line is cut there, or lost.
/// @par Thread safety
/// Caller serialises.
class TOLVEX_EXPORT LogLine
{
public:
    /// Begins a line without a module. Does not block.
    /// @param type  Severity of the line.
    LogLine(LogType type);
    /// Begins a line with the tag of a module. Does not block.
    /// @param type    Severity of the line.
    /// @param module  Where the line comes from.
    LogLine(LogType type, LogModule module);
    /// Writes the line. Blocks as Logger::WriteHeader() does.
    ~LogLine();

    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    /// Appends a value as a stream does.
    /// @tparam T     Whatever an std::ostream takes.
    /// @param value  Only read.
    /// @return this line.
    template <typename T>
    LogLine& operator<<(const T& value)
    {
        stream << value;
        return *this;
    }

    /// Applies a manipulator to the text.
    LogLine& operator<<(std::ostream& (*manipulator)(std::ostream&))
    {
        stream << manipulator;
        return *this;
    }

    LogLine& operator<<(std::ios& (*manipulator)(std::ios&))
    {
        stream << manipulator;
        return *this;
    }

    LogLine& operator<<(std::ios_base& (*manipulator)(std::ios_base&))
    {
        stream << manipulator;
        return *this;
    }

private:
    /// Collects in place, and on the heap when that is full.
    class Text : public std::streambuf
    {
    public:
        Text() { setp(inPlace.data(), inPlace.data() + inPlace.size()); }

        std::string_view View() const { return {begin, static_cast<std::size_t>(pptr() - begin)}; }

    protected:
        int_type overflow(int_type character) override;

    private:
        std::array<char, 256> inPlace;
        std::string grown;
        char* begin = inPlace.data();  ///< of the text; pbase() is where the last growth ended
    };

    LogLine(LogType type, std::optional<LogModule> module);
    void Write();

    LogType lineType;
    std::optional<LogModule> lineModule;
    Text text;
    std::ostream stream;
};

}  // namespace Tolvex::Ilog
