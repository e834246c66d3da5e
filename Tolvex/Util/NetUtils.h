/// @file
/// Network: a test whether the internet can be reached, and the IPv4 interfaces of the kernel.
///
/// The functions that change an interface need the capability CAP_NET_ADMIN. The kernel uses the
/// first 15 characters of an interface's name. A null pointer counts as an empty text.
/// @code
/// if (Util::CheckIfNetInterfaceIsPresent("eth0") &&
///     Util::SetStatusOfNetInterfaceUsingSocket(1, "eth0") == 0) {
///     Util::SetAddressOfNetInterfaceUsingSocket("eth0", "10.0.0.2", "255.255.255.0");
/// }
/// @endcode
/// @par Thread safety
/// Thread-safe.
#pragma once

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Host that NetworkConnectivityCheck() pings.
inline constexpr char connectivityHost[] = "www.google.com";

/// Pings connectivityHost three times, with the ping program and the system's name resolution.
///
/// Blocks as long as ping runs: two seconds if the host answers, and many seconds if the name
/// cannot be resolved or the host does not answer.
/// @return true if ping succeeded.
TOLVEX_EXPORT bool NetworkConnectivityCheck();

/// Tells whether there is a network interface, up or down, whose name begins with a text.
///
/// If there is none, it writes "[NET] is not present" and a newline to standard output.
/// @param name  "eth" also finds eth0; an empty text finds any interface.
/// @return true if there is one.
/// @note The message does not name the interface, and it is not logged.
TOLVEX_EXPORT bool CheckIfNetInterfaceIsPresent(const char* name);

/// Sets the IPv4 address, then the netmask, of an interface.
///
/// @param name     Name of the interface.
/// @param ip       Dotted quad.
/// @param netmask  Dotted quad.
/// @return 0, always.
/// @throws Tolvex::IException if a step fails; the steps before it are not undone. The text is
///         "Failed to set socket ", "Failed to format IP address, ", "Failed to set IP address ",
///         "Failed to format netmask address " or "Failed to set netmask address ", and then the
///         system's text for the error. Nothing is logged.
/// @note A text that is no dotted quad counts as 0.0.0.0. As an address this removes the address
///       of the interface, and Linux then refuses the netmask.
/// @note Descriptor 0, which the socket has when standard input is closed, stays open on failure.
TOLVEX_EXPORT int SetAddressOfNetInterfaceUsingSocket(const char* name, const char* ip,
                                                      const char* netmask);

/// Switches an interface up or down, and logs the attempt. Blocks as long as the log does.
///
/// @param status  1 for up.
/// @param name    Name of the interface.
/// @return 0; -1 on failure, after logging "Failed to set socket ", "Failed to get flags (2), " or
///         "Failed to set flags (1) ", and then the system's text for the error. Throws nothing.
/// @note Any status but 1 is down.
/// @note Descriptor 0, which the socket has when standard input is closed, stays open on failure.
TOLVEX_EXPORT int SetStatusOfNetInterfaceUsingSocket(int status, const char* name);

}  // namespace Tolvex::Util
