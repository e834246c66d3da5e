#include "Tolvex/Log/LoggerBase.h"

namespace Tolvex::Ilog {

template class LoggerBase<FileLogPolicy>;
template class LoggerBase<ConsoleLogPolicy>;

}  // namespace Tolvex::Ilog
