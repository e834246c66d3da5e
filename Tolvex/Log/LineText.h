/// @file
/// The text of a line in its buffer. Applications use LoggerBase, which is built on this.
#pragma once

#include <ostream>
#include <sstream>

#include "Tolvex/Log/LogType.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Ilog {

/// Makes the buffer empty, good and formatting as a new stream does. Keeps its memory.
/// @par Thread safety
/// Caller serialises; so do all of these.
TOLVEX_EXPORT void ResetLine(std::stringstream& buffer);

/// Inserts "[date and time]", "[temperature C]" when it is known, and the tag of the type.
TOLVEX_EXPORT void AppendLineHeader(std::stringstream& buffer, LogType type);

/// @return whether the text ends in a newline.
TOLVEX_EXPORT bool EndsWithNewline(const std::stringstream& buffer);

/// Ends the text with a newline, also when insertions have failed. Without memory for one more
/// character the newline replaces the last one. @return false when there is no room even for that.
TOLVEX_EXPORT bool TerminateLine(std::stringstream& buffer);

/// Applies a manipulator; std::endl ends the text as TerminateLine() does, which is its result.
TOLVEX_EXPORT bool ApplyManipulator(std::stringstream& buffer,
                                    std::ostream& (*manipulator)(std::ostream&));

}  // namespace Tolvex::Ilog
