#include "Tolvex/Log/LogPolicy.h"

#include <cerrno>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/SharedValue.h"

namespace Tolvex::Ilog {

namespace {

constexpr mode_t newFileMode = 0666;  // less the umask

/// A file that is open while the object exists.
class OpenFile
{
public:
    OpenFile(const char* name, int flags)
        : descriptor(open(name, flags | O_CLOEXEC | O_LARGEFILE, newFileMode))
    {
    }
    ~OpenFile()
    {
        const Base::NoCancellation
            scope;  // A cancellation that leaves a destructor ends the process.
        if (IsOpen()) {
            close(descriptor);  // Best effort: a failure is not reported.
        }
    }

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    bool IsOpen() const { return descriptor >= 0; }
    int Get() const { return descriptor; }

private:
    int descriptor;
};

/// Which file a descriptor or a mark stands for.
struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;  ///< 0: any file

    bool Includes(const FileIdentity& other) const
    {
        return inode == 0 || (device == other.device && inode == other.inode);
    }
};

/// @return the identity of a regular file; nothing for anything else.
std::optional<FileIdentity> IdentityOf(const OpenFile& file)
{
    struct stat64 status
    {
    };
    if (!file.IsOpen() || fstat64(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileIdentity{status.st_dev, static_cast<ino_t>(status.st_ino)};
}

/// @return whether the file is among those meant and its last byte is not a newline.
bool EndsInTheMiddleOfALine(const char* name, const FileIdentity& meant)
{
    const OpenFile file(name, O_RDONLY | O_NONBLOCK);  // To open a FIFO does not block.
    const std::optional<FileIdentity> identity = IdentityOf(file);
    char last = '\n';
    return identity && meant.Includes(*identity) && lseek64(file.Get(), -1, SEEK_END) >= 0 &&
           read(file.Get(), &last, 1) == 1 && last != '\n';
}

/// Writes all of the text unless the system refuses: in one go, if it takes it in one go.
///
/// @return how much of it was written.
std::size_t WriteAll(int descriptor, std::string_view text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

/// @return the colour of a type of line; nothing for a type that has none.
std::optional<ColorCode> ColorOf(LogType type)
{
    switch (type) {
        case LogType::Info:
            break;
        case LogType::Warning:
            return ColorCode::Yellow;
        case LogType::Error:
            return ColorCode::Red;
        case LogType::Notice:
            return ColorCode::Green;
    }
    return std::nullopt;
}

/// @return the escape sequence that switches to a colour.
std::string Escape(ColorCode code)
{
    return "\x1B[" + std::to_string(static_cast<int>(code)) + 'm';
}

}  // namespace

ILogPolicy::~ILogPolicy() = default;

void ILogPolicy::SetOutput(const std::string&) {}

void ILogPolicy::Close() {}

void ILogPolicy::WriteHeader(LogType) {}

/// A file that may end in a part of a line.
struct FileLogPolicy::TornEnd
{
    bool possible = false;
    FileIdentity file;
};

FileLogPolicy::FileLogPolicy() : tornEnd(std::make_shared<TornEnd>()) {}

FileLogPolicy::~FileLogPolicy() = default;

void FileLogPolicy::SetOutput(const std::string& name)
{
    // Required: the file is neither opened nor created nor checked here.
    if (name != fileName) {
        tornEnd = std::make_shared<TornEnd>();  // A line was torn in the file before only.
        fileName = name;
    }
    Base::StoreShared(outputSet, true);
}

void FileLogPolicy::RepairEnd()
{
    *tornEnd = {true, {}};
}

void FileLogPolicy::Close()
{
    Base::StoreShared(outputSet, false);
}

// Required: the file is opened and closed for every line.
// So others may move, delete or truncate it at any time.
void FileLogPolicy::Write(const std::string& line)
{
    if (!Base::LoadShared(outputSet) || fileName.empty()) {
        return;
    }

    // A system call that hangs may outlast the policy: after the first one no member is touched.
    const std::shared_ptr<TornEnd> torn = tornEnd;
    const std::string nameKept = torn->possible ? fileName : std::string();
    const char* const name = torn->possible ? nameKept.c_str() : fileName.c_str();
    const bool newLineFirst = torn->possible && EndsInTheMiddleOfALine(name, torn->file);
    const OpenFile file(name, O_WRONLY | O_CREAT | O_APPEND);
    if (!file.IsOpen()) {
        return;  // Required: a line for which there is no file is lost without a report.
    }

    const std::string repaired = newLineFirst ? '\n' + line : std::string();
    const std::string_view text = newLineFirst ? repaired : line;
    const std::size_t written = WriteAll(file.Get(), text);
    if (written == text.size()) {
        torn->possible = false;
    } else if (written != 0) {
        *torn = {true, IdentityOf(file).value_or(FileIdentity())};
    }
}

ConsoleLogPolicy::ConsoleLogPolicy() = default;

ConsoleLogPolicy::~ConsoleLogPolicy() = default;

void ConsoleLogPolicy::WriteHeader(LogType type)
{
    lineType = type;
}

// Required: standard output is not flushed. It is used after a failure too, which may have passed.
void ConsoleLogPolicy::Write(const std::string& line)
{
    if (!std::cout.good()) {
        std::cout.clear();
    }

    const std::optional<ColorCode> color = ColorOf(lineType);
    if (!color) {
        std::cout.write(line.data(), static_cast<std::streamsize>(line.size()));
        return;
    }
    // One piece, so that nothing that another thread prints takes the colour. No member: a write
    // that hangs may outlast the policy.
    std::string colored = Escape(*color);
    // Required: the colour is reset after the newline that ends the line.
    colored.append(line).append(Escape(ColorCode::Default));
    std::cout.write(colored.data(), static_cast<std::streamsize>(colored.size()));
}

std::ostream& operator<<(std::ostream& stream, const ColoredLog& color)
{
    const std::string escape = Escape(color.code);
    return stream.write(escape.data(), static_cast<std::streamsize>(escape.size()));
}

}  // namespace Tolvex::Ilog
