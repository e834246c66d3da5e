/// @file
/// A small file system of a test, to fill up, to make read-only or to break.
#pragma once

#include <filesystem>
#include <string>
#include <sys/mount.h>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Namespaces.h"
#include "tests/Support/ScratchDirectory.h"

namespace Tolvex::Support {

/// Runs work, a void(const std::string& directory), in a child process that has a tmpfs there.
///
/// @param options  Of the tmpfs, such as "size=64k" or "nr_inodes=3".
/// Skips the calling test without the right to mount. A failure in work fails the test.
template <typename Work>
void InSmallFileSystem(const char* options, Work work)
{
    constexpr int noRight = 77;  // the exit code of a child that may not mount
    const ScratchDirectory scratch;
    const std::string mounted = scratch.Path("small");
    std::filesystem::create_directory(mounted);
    const ChildResult child = RunInChild([&] {
        if (!EnterPrivateMountNamespace() ||
            mount("none", mounted.c_str(), "tmpfs", 0, options) != 0) {
            return noRight;
        }
        static_cast<void>(work(mounted));
        return 0;
    });
    if (child.ExitCode() == noRight) {
        GTEST_SKIP() << "needs the right to mount: mounts a file system of its own";
    }
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

/// Makes it read-only, or writable again.
inline void RemountSmallFileSystem(const std::string& directory, bool readOnly)
{
    unsigned long flags = MS_REMOUNT;
    if (readOnly) {
        flags |= MS_RDONLY;
    }
    EXPECT_EQ(mount("none", directory.c_str(), "tmpfs", flags, nullptr), 0);
}

}  // namespace Tolvex::Support
