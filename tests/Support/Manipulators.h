/// @file
/// Manipulators that do to the stream of a logger, or to the logger, what none should.
#pragma once

#include <ostream>
#include <streambuf>

#include "tests/Support/CapturingPolicy.h"

namespace Tolvex::Support {

/// The logger that manipulators mean, which get nothing but the stream. Set by each test.
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
