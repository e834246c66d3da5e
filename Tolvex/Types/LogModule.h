#pragma once

#include <cstdint>

#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/EnumString.h"

namespace Tolvex {

/// The program module that a log line comes from. Its text is the name of the enumerator:
/// @code
/// const std::string& text = Util::EnumString<LogModule>::From(LogModule::WNET);  // "WNET"
/// @endcode
enum class LogModule : std::int32_t
{
    Ithread,       ///< "Ithread"; the worker threads of the library use it
    Iaq,           ///< "Iaq"
    FaceRec,       ///< "FaceRec"
    Sdw,           ///< "Sdw"
    DaD,           ///< "DaD"
    CELL,          ///< "CELL"
    LT,            ///< "LT"
    WNET,          ///< "WNET"; the network utilities of the library use it
    CONFIG,        ///< "CONFIG"
    Event,         ///< "Event"
    Accelerometer  ///< "Accelerometer"
};

}  // namespace Tolvex

namespace Tolvex::Util {

// Instantiated in the library, so that the process has one table.
extern template class EnumStringBase<EnumString<LogModule>, LogModule>;

/// Registers the names of the modules.
template <>
TOLVEX_EXPORT void EnumString<LogModule>::RegisterEnumerators();

}  // namespace Tolvex::Util
