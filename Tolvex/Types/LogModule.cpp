#include "Tolvex/Types/LogModule.h"

namespace Tolvex::Util {

template <>
void EnumString<LogModule>::RegisterEnumerators()
{
    RegisterEnumerator(LogModule::Ithread, "Ithread");
    RegisterEnumerator(LogModule::Iaq, "Iaq");
    RegisterEnumerator(LogModule::FaceRec, "FaceRec");
    RegisterEnumerator(LogModule::Sdw, "Sdw");
    RegisterEnumerator(LogModule::DaD, "DaD");
    RegisterEnumerator(LogModule::CELL, "CELL");
    RegisterEnumerator(LogModule::LT, "LT");
    RegisterEnumerator(LogModule::WNET, "WNET");
    RegisterEnumerator(LogModule::CONFIG, "CONFIG");
    RegisterEnumerator(LogModule::Event, "Event");
    RegisterEnumerator(LogModule::Accelerometer, "Accelerometer");
}

template class EnumStringBase<EnumString<LogModule>, LogModule>;

}  // namespace Tolvex::Util
