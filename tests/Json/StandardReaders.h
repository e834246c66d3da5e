/// @file
/// Holds what SerializeStandard() writes against two readers of standard JSON.
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"

namespace Tolvex::Json::Judge {

/// Writes the value, reads the text by both readers, and compares every part of the tree.
///
/// @param value  At most some thousand levels deep.
/// @return what is wrong, or an empty text.
std::string StandardComplaint(const Value& value);

}  // namespace Tolvex::Json::Judge
