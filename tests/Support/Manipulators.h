/// @file
/// Manipulators that misuse the stream of a logger or the logger itself.
#pragma once

#include <ostream>
#include <streambuf>

#include "tests/Support/CapturingPolicy.h"

namespace Tolvex::Support {

/// The logger that the manipulators use: they get only the stream. Each test sets it.
inline CapturingLogger* loggerOfManipulator = nullptr;

inline std::streambuf* takenBuffer = nullptr;  ///< between TakingTheBuffer() and GivingItBack()

inline std::ostream& TakingTheBuffer(std::ostream& stream)
{
    takenBuffer = stream.rdbuf(nullptr);
    return stream;
}

inline std::ostream& GivingItBack(std::ostream& stream)
{
    stream.rdbuf(takenBuffer);
    return stream;
}

inline std::ostream& Closing(std::ostream& stream)
{
    loggerOfManipulator->Close();
    return stream;
}

}  // namespace Tolvex::Support
