/// @file
/// Everything that the library offers, in one include.
/// @code
/// #include "Tolvex/Tolvex.h"
/// @endcode
#pragma once

/// @namespace Tolvex
/// The library: its exception, small shared types, and one namespace for each subject.
/// @namespace Tolvex::Crypto
/// Base64 and HMAC-SHA1.
/// @namespace Tolvex::Ilog
/// The log of the process.
/// @namespace Tolvex::Interfaces
/// Worker threads, the event dispatcher, ignition off, the semaphore, and the base class that keeps
/// error texts.
/// @namespace Tolvex::Json
/// JSON documents in memory, written as text and read back.
/// @namespace Tolvex::Pipeline
/// Stages that hold the most recent frames.
/// @namespace Tolvex::Util
/// Timers, dates, and the utilities of the device.
/// @namespace Tolvex::UtilAcc
/// Scaling of accelerometer samples.

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Crypto/Crypto.h"
#include "Tolvex/Exception/IException.h"
#include "Tolvex/Interfaces/IError.h"
#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Interfaces/ISignal.h"
#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Interfaces/IgnitionOffSequence.h"
#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Interfaces/WorkerHealth.h"
#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"
#include "Tolvex/Log/LogDurability.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/LogType.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Log/LoggerBase.h"
#include "Tolvex/Log/LoggerCore.h"
#include "Tolvex/Log/PolicyCalls.h"
#include "Tolvex/Pipeline/IPipelineElement.h"
#include "Tolvex/Types/Buffer.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Types/LogModule.h"
#include "Tolvex/Util/CircularBuffer.h"
#include "Tolvex/Util/DriveRecord.h"
#include "Tolvex/Util/EnumString.h"
#include "Tolvex/Util/EventFile.h"
#include "Tolvex/Util/FlashUtils.h"
#include "Tolvex/Util/IAsync.h"
#include "Tolvex/Util/NetUtils.h"
#include "Tolvex/Util/SunCalculator.h"
#include "Tolvex/Util/TemperatureMonitor.h"
#include "Tolvex/Util/Tick.h"
#include "Tolvex/Util/TimeMonitor.h"
#include "Tolvex/Util/Timer.h"
#include "Tolvex/Util/Uid.h"
#include "Tolvex/Util/UtilAcc.h"
#include "Tolvex/Util/UtilEventName.h"
#include "Tolvex/Util/UtilString.h"
#include "Tolvex/Util/UtilTime.h"
