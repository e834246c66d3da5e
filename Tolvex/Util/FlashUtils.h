/// @file
/// Shell commands, and the variables of the boot loader's environment in flash.
///
/// The variables are read and written with the boot loader's own tools, /sbin/fw_printenv and
/// /sbin/fw_setenv. These find the environment through /etc/fw_env.config; see
/// WriteFlashConfigFile(). Commands are texts for /bin/sh. Names and values are not escaped, so the
/// shell interprets quotes, blanks and `$` in them: never pass a text from outside the program. A
/// null pointer counts as an empty text.
/// @code
/// std::string serial;
/// if (Util::ReadFlashVar("serial", serial) == 0 && serial.empty()) {
///     Util::WriteFlashVar("serial", Util::NewUid().c_str());
/// }
/// const std::string kernel = Util::ExecCmd_Pipe("uname -r");  // with its newline
/// @endcode
/// @par Errors
/// Failures show in the results, as stated at each function; nothing is logged. A text that is too
/// long for a std::string throws std::length_error.
/// @par Thread safety
/// Thread-safe. Each function blocks until its command has ended. A thread that is cancelled in
/// ExecCmd_Pipe(), or in the second run of ReadFlashVar(), ends after the command has ended.
/// Everywhere else a cancellation kills the shell. Only the tools themselves can keep two writers
/// of one environment apart.
#pragma once

#include <string>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Util {

/// Runs a command and returns its standard output, with the trailing newlines.
///
/// For text only: a NUL hides the rest of its line. In a line of more than 199 characters it hides
/// the rest of its piece of 199 characters. The exit status is ignored.
/// @note A signal that interrupts the reading (a handler without SA_RESTART) ends it. The result is
///       then the text that was read before.
/// @param command  NUL-terminated, for /bin/sh.
/// @return the text; empty also if the command could not be started.
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
/// Then removes every carriage return and line feed from value, also from the text that it held
/// before the call.
/// @param name   Not quoted for the shell.
/// @param value  Untouched on failure.
/// @return 0, or -1 if fw_printenv fails.
/// @note The tool runs twice, and the first run writes the value to standard output.
/// @note The tool decides whether an unknown variable is a failure: that of libubootenv 0.3 prints
///       an empty line and succeeds.
TOLVEX_EXPORT int ReadFlashVar(const char* name, std::string& value);

/// Sets a variable.
///
/// @param name   Not quoted for the shell.
/// @param value  Put between double quotes; nothing in it is escaped.
/// @return as ExecCmd_System().
TOLVEX_EXPORT int WriteFlashVar(const char* name, const char* value);

}  // namespace Tolvex::Util
