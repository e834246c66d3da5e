#include "Tolvex/Interfaces/IgnitionOffMode.h"

namespace Tolvex::Interfaces {

IgnitionOffMode::~IgnitionOffMode() = default;

}  // namespace Tolvex::Interfaces
