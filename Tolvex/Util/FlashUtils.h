/// @file
/// Shell commands, and through them the variables of the boot loader's environment in flash.
///
/// The environment is reached only by the boot loader's own tools, /sbin/fw_printenv and
/// /sbin/fw_setenv, which read where it lies from /etc/fw_env.config; see WriteFlashConfigFile().
/// Commands are texts for /bin/sh. Names and values enter them as they are, so quotes, blanks and
/// `$` in them mean what they mean to the shell: never pass on a text from outside. A null pointer
/// counts as an empty text.
/// @code
/// std::string serial;
/// if (Util::ReadFlashVar("serial", serial) == 0 && serial.empty()) {
///     Util::WriteFlashVar("serial", Util::NewUid().c_str());
/// }
/// const std::string kernel = Util::ExecCmd_Pipe("uname -r");  // with its newline
/// @endcode
/// @par Errors
/// By result, as stated at each function; nothing is logged. A text beyond the longest std::string
/// throws std::length_error.
/// @par Thread safety
/// Thread-safe. Each function blocks until its command has ended; so does the cancellation of a
/// thread that is in ExecCmd_Pipe(). In the others a cancellation kills the shell of the command.
/// Two writers of one environment are kept apart by the tools, if at all.
#pragma once

#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Runs a command and collects what it writes to its standard output, trailing newlines included.
///
/// For text: of a line, or of a piece of 199 characters of a longer one, the part from a NUL on is
/// lost. The exit status is ignored.
/// @note A signal that interrupts the reading (a handler without SA_RESTART) ends it: the result is
///       what was read before.
/// @param command  NUL-terminated, for /bin/sh.
/// @return the text; empty also when the command could not be started.
TOLVEX_EXPORT std::string ExecCmd_Pipe(const char* command);

/// Runs a command on the standard streams of this process.
///
/// @param command  NUL-terminated, for /bin/sh.
/// @return what system() returns: a wait status (0: the command succeeded), or -1.
TOLVEX_EXPORT int ExecCmd_System(const char* command);

/// Overwrites /etc/fw_env.config: one environment of 8 KiB at the start of /dev/mtd1, in two flash
/// sectors of 4 KiB. No other function here calls it.
///
/// @return as ExecCmd_System().
TOLVEX_EXPORT int WriteFlashConfigFile();

/// Reads a variable and appends it to value.
///
/// Then every carriage return and line feed is removed from value, wherever it stands, and from
/// what was there before too.
/// @param name   Not quoted for the shell.
/// @param value  Untouched on failure.
/// @return 0, or -1 when fw_printenv fails.
/// @note The tool runs twice, and the first run writes the value to standard output.
/// @note Whether an unknown variable is a failure is the tool's to say: that of libubootenv 0.3
///       prints an empty line and succeeds.
TOLVEX_EXPORT int ReadFlashVar(const char* name, std::string& value);

/// Sets a variable.
///
/// @param name   Not quoted for the shell.
/// @param value  Put between double quotes; nothing in it is escaped.
/// @return as ExecCmd_System().
TOLVEX_EXPORT int WriteFlashVar(const char* name, const char* value);

}  // namespace Tolvex::Util
