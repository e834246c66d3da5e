/// @file
/// Replacing a file in one step.
#pragma once

#include <string>
#include <string_view>

namespace Tolvex::Base {

/// Replaces a file in one step: after a loss of power there is the old one or the new one.
///
/// Writes the file `path` + ".new" to the medium, renames it, and writes the directory to the
/// medium. Blocks as long as that takes, and up to 5 s while another thread or process writes the
/// same file; then fails with EWOULDBLOCK. A child that was forked meanwhile counts as such a
/// process as long as it lives. Not cancelled meanwhile.
/// @param path  Its directory must exist; without a NUL. The permissions are those of a new file,
///              or of the ".new" that a process has left behind when it was killed.
/// @param text  Any bytes.
/// @return null for success; otherwise "open: ", "write: " or "directory: ", with the reason in
/// errno. The old file is left as it was, except when only the directory could not be written.
/// @throws std::bad_alloc without memory, before anything has changed.
/// @par Thread safety
/// Thread-safe.
const char* ReplaceFile(const std::string& path, std::string_view text);

}  // namespace Tolvex::Base
