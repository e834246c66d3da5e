/// @file
/// A small file system of a test's own, to fill up, to make read-only, to break. Needs root.
#pragma once

#include <filesystem>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Namespaces.h"
#include "tests/Support/ScratchDirectory.h"

namespace Tolvex::Support {

/// Runs work, a void(const std::string& directory), in a child process that has a tmpfs there.
///
/// @param options  Of the tmpfs, such as "size=64k" or "nr_inodes=3".
/// Skips the calling test without root; what fails in work fails the test.
template <typename Work>
void InSmallFileSystem(const char* options, Work work)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root: mounts a file system";
    }
    const ScratchDirectory scratch;
    const std::string mounted = scratch.Path("small");
    std::filesystem::create_directory(mounted);
    const ChildResult child = RunInChild([&] {
        if (!EnterPrivateMountNamespace() ||
            mount("none", mounted.c_str(), "tmpfs", 0, options) != 0) {
            ADD_FAILURE() << "no file system";
            return 1;
        }
        work(mounted);
        return 0;
    });
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
