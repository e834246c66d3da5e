/// @file
/// The functions through which LoggerCore calls a policy without knowing its class. Applications
/// use LoggerBase; see examples/LogLines.cpp.
#pragma once

#include <string>
#include <string_view>

#include "Tolvex/Log/LogType.h"

namespace Tolvex::Ilog {

/// The operations of a policy. The first argument of each is the address of the policy.
struct PolicyCalls
{
    void (*writeHeader)(void* policy, LogType type);           ///< ILogPolicy::WriteHeader()
    void (*write)(void* policy, const std::string& line);      ///< ILogPolicy::Write()
    void (*setOutput)(void* policy, const std::string& name);  ///< ILogPolicy::SetOutput()
    /// Called instead of setOutput when the logger is enabled. If the output does not end in a
    /// newline, the first line starts on a new line.
    void (*openOutput)(void* policy, const std::string& name);
    void (*close)(void* policy);  ///< ILogPolicy::Close()
    /// Tells the policy that the line that is being composed is the last one before close.
    void (*beginLastLine)(void* policy);
    /// Takes a finished line; called on the thread that ended the line. Null for most policies. A
    /// logger whose policy has this operation has no writer thread and does not call write.
    void (*keep)(void* policy, std::string_view line) = nullptr;
};

/// The operations of one policy class. RepairEnd() and BeginIgnitionOff() are optional: they are
/// called only if the class has them, as FileLogPolicy does.
template <typename Policy>
inline constexpr PolicyCalls policyCallsOf = {
    [](void* policy, LogType type) { static_cast<Policy*>(policy)->WriteHeader(type); },
    [](void* policy, const std::string& line) { static_cast<Policy*>(policy)->Write(line); },
    [](void* policy, const std::string& name) { static_cast<Policy*>(policy)->SetOutput(name); },
    [](void* policy, const std::string& name) {
        Policy& opened = *static_cast<Policy*>(policy);
        opened.SetOutput(name);
        if constexpr (requires { opened.RepairEnd(); }) {
            opened.RepairEnd();
        }
    },
    [](void* policy) { static_cast<Policy*>(policy)->Close(); },
    [](void* policy) {
        if constexpr (requires { static_cast<Policy*>(policy)->BeginIgnitionOff(); }) {
            static_cast<Policy*>(policy)->BeginIgnitionOff();
        }
    },
};

}  // namespace Tolvex::Ilog
