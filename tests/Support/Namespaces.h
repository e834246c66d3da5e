/// @file
/// Private parts of the system that a test program can change. They need root with the right to
/// make namespaces, which the root of a container may not have.
#pragma once

#include <sched.h>
#include <sys/mount.h>

namespace Tolvex::Support {

/// Gives the calling thread, and the threads that it starts, a private mount table. The system does
/// not see its changes.
///
/// Call it before the test program starts another thread, including threads of timers.
/// @return false if there is no right to do so.
inline bool EnterPrivateMountNamespace()
{
    // The kernel ignores source and type here. Valgrind reports null pointers.
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Gives the calling thread, and the threads that it starts, a private network. It has a loopback
/// interface, which is down, and no connection to other networks.
/// @return false if there is no right to do so.
inline bool EnterPrivateNetworkNamespace()
{
    return unshare(CLONE_NEWNET) == 0;
}

/// Hides a directory behind an empty one. Needs a private mount namespace.
/// @return false if the mount failed.
inline bool MountEmptyDirectory(const char* path)
{
    return mount("none", path, "tmpfs", 0, "mode=755") == 0;
}

}  // namespace Tolvex::Support
