/// @file
/// File descriptors: an owner, and writes and syncs that are complete.
#pragma once

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>
#include <utility>

#include "Tolvex/Base/Private/NoCancellation.h"

namespace Tolvex::Base {

/// Owns a descriptor and closes it at the end of its life.
/// @code
/// const Base::Descriptor file(open("/etc/hostname", O_RDONLY | O_CLOEXEC));
/// if (!file.IsOpen()) {
///     std::cout << "there is no such file\n";
/// }
/// @endcode
/// @par Thread safety
/// Reentrant.
class Descriptor
{
public:
    /// @param opened  What open() has returned; a negative number for no descriptor.
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}

    /// Best effort: a failure to close is not reported.
    ~Descriptor()
    {
        if (IsOpen()) {
            const NoCancellation scope;  // Cancellation that leaves a destructor ends the process.
            close(number);
        }
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    bool IsOpen() const { return number >= 0; }
    int Get() const { return number; }

private:
    int number;
};

/// Writes all of the text, unless the system refuses. If the system takes the whole text in one
/// write(), there is only one.
///
/// @return how many bytes were written; when some are missing, errno tells why.
inline std::size_t WriteAll(const Descriptor& file, std::string_view text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(file.Get(), text.data() + done, text.size() - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0) {
            errno = ENOSPC;
            break;
        } else if (errno != EINTR) {
            break;
        }
    }
    return done;
}

/// Has the system write a file to the medium. Blocks as long as that takes.
///
/// @param sync  fdatasync() or fsync().
/// @return false when the file may not be on the medium; errno tells why.
inline bool Sync(int (*sync)(int), const Descriptor& file)
{
    int result = 0;
    do {
        result = sync(file.Get());
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/// Has the system write the bytes of a file to the medium.
///
/// @return false when they may not be on the medium; errno tells why.
inline bool SyncData(const Descriptor& file)
{
    return Sync(fdatasync, file);
}

/// @return the path of the directory that a file is in.
inline std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

/// Has the system write the entries of a directory to the medium: those of new and renamed files.
///
/// @return false when they may not be on the medium; errno tells why.
inline bool SyncDirectory(const std::string& path)
{
    const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.IsOpen() && Sync(fsync, directory);
}

}  // namespace Tolvex::Base
