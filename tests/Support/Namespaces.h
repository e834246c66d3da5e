/// @file
/// Parts of the system that a test program gets for itself, to change as it likes. Need root.
#pragma once

#include <sched.h>
#include <sys/mount.h>

namespace Tolvex::Support {

/// Gives the calling thread, and those that it starts, a mount table of their own, of which nothing
/// reaches the system.
///
/// Call it before the test program starts a thread, those of timers included.
/// @return whether that worked.
inline bool EnterPrivateMountNamespace()
{
    // The kernel ignores source and type here; valgrind takes a null for a mistake.
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Gives the calling thread, and those that it starts, a network of their own: at first a loopback
/// interface that is down, and no way out.
/// @return whether that worked.
inline bool EnterPrivateNetworkNamespace()
{
    return unshare(CLONE_NEWNET) == 0;
}

/// Hides a directory behind an empty one. Needs a private mount namespace.
/// @return whether that worked.
inline bool MountEmptyDirectory(const char* path)
{
    return mount("none", path, "tmpfs", 0, "mode=755") == 0;
}

}  // namespace Tolvex::Support
