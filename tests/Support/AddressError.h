/// @file
/// The error text of a failed attempt to set an address.
#pragma once

#include <string>

#include "Tolvex/Exception/IException.h"
#include "Tolvex/Util/NetUtils.h"

namespace Tolvex::Support {

/// @return the text of the exception, or "nothing thrown".
inline std::string TextThrown(const char* name, const char* ip, const char* netmask)
{
    try {
        Util::SetAddressOfNetInterfaceUsingSocket(name, ip, netmask);
    } catch (const IException& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

}  // namespace Tolvex::Support
