/// @file
/// The text of a line in its buffer. Applications use LoggerBase, which is built on this; see
/// examples/LogLines.cpp.
#pragma once

#include <ostream>
#include <sstream>

#include "Tolvex/Log/LogType.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Ilog {

/// Makes the buffer empty, good and formatting as a new stream does. Keeps its memory.
/// @param buffer  The line.
/// @par Thread safety
/// Caller serialises; so do all of these.
TOLVEX_EXPORT void ResetLine(std::stringstream& buffer);

/// Inserts "[date and time]", "[temperature C]" when it is known, and the tag of the type.
/// @param buffer  The line, reset before.
/// @param type    Any value; one that is not known has no tag.
TOLVEX_EXPORT void AppendLineHeader(std::stringstream& buffer, LogType type);

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
