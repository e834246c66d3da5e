#pragma once

#include "Tolvex/Types/Export.h"

namespace Tolvex::Interfaces {

/// Interface of objects that react when the vehicle's ignition is switched off.
///
/// The application calls RunIgnitionOff(); the library never calls it by itself.
/// @code
/// class Recorder : public Interfaces::IgnitionOffMode
/// {
/// public:
///     void RunIgnitionOff() override { recording = false; }
///
///     bool recording = true;
/// };
///
/// Recorder recorder;
/// for (Interfaces::IgnitionOffMode* part :
///      {static_cast<Interfaces::IgnitionOffMode*>(&recorder),
///       static_cast<Interfaces::IgnitionOffMode*>(Ilog::Logger::GetInstance())}) {
///     part->RunIgnitionOff();
/// }
/// @endcode
/// @par Thread safety
/// That of the implementing class.
class TOLVEX_EXPORT IgnitionOffMode
{
public:
    /// May be destroyed through a pointer to this class.
    virtual ~IgnitionOffMode();

    /// The reaction to the ignition being switched off.
    virtual void RunIgnitionOff() = 0;
};

}  // namespace Tolvex::Interfaces
