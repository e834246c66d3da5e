#include "Tolvex/Interfaces/WorkerHealth.h"

#include "Tolvex/Interfaces/Private/WorkerRecord.h"

namespace Tolvex::Interfaces {

std::vector<WorkerHealth> ListWorkers()
{
    return WorkerRecord::ReadAll();
}

}  // namespace Tolvex::Interfaces
