/// @file
/// The text of a line in its buffer. Applications use LoggerBase, which is built on this; see
/// examples/LogLines.cpp.
#pragma once

#include <array>
#include <cstddef>
#include <ctime>
#include <ostream>
#include <sstream>
#include <string_view>

#include "Tolvex/Log/LogType.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Ilog {

/// Makes the buffer empty, good and formatting as a new stream does. Keeps its memory.
/// @param buffer  The line.
/// @par Thread safety
/// Caller serialises; so do all of these.
TOLVEX_EXPORT void ResetLine(std::stringstream& buffer);

/// The beginning of a line: "[date and time]", "[temperature C]" when it is known, and the tag of
/// the type. To be made before the line lock is taken: what can be done while others have the line
/// does not delay the next one.
/// @par Thread safety
/// Belongs to the thread that made it.
class TOLVEX_EXPORT LineHeader
{
public:
    /// The first one of a process makes its temperature monitor.
    /// @param lineType  Any value; one that is not known has no tag.
    /// @throws std::system_error when a lock cannot be taken; std::bad_alloc.
    explicit LineHeader(LogType lineType);

    /// Inserts the text, made anew if the clock shows another second by now.
    /// @param buffer  The line, reset before.
    void InsertInto(std::stringstream& buffer);

private:
    void Make();
    void Append(std::string_view piece);

    LogType type;
    std::time_t second = 0;
    std::size_t length = 0;
    std::array<char, 128> text;  ///< longer than any header
};

/// @param buffer  The line.
/// @return whether the text ends in a newline.
TOLVEX_EXPORT bool EndsWithNewline(const std::stringstream& buffer);

/// Ends the text with a newline, also when insertions have failed. Without memory for one more
/// character the newline replaces the last one.
/// @param buffer  The line.
/// @return false when there is no room even for that.
TOLVEX_EXPORT bool TerminateLine(std::stringstream& buffer);

/// Applies a manipulator; std::endl ends the text as TerminateLine() does.
/// @param buffer       The line.
/// @param manipulator  Called with the buffer, unless it is std::endl or null.
/// @return for std::endl the result of TerminateLine(), else true.
TOLVEX_EXPORT bool ApplyManipulator(std::stringstream& buffer,
                                    std::ostream& (*manipulator)(std::ostream&));

}  // namespace Tolvex::Ilog
