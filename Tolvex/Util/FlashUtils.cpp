#include "Tolvex/Util/FlashUtils.h"

#include <cstdio>
#include <cstdlib>

#include "Tolvex/Base/Private/NoCancellation.h"
#include "Tolvex/Base/Private/TextOrEmpty.h"

namespace Tolvex::Util {

namespace {

/// The standard output of a running command. The destructor waits for the end of the command.
class CommandOutput
{
public:
    /// Closed on exec, so that a program that another thread starts does not keep the pipe.
    explicit CommandOutput(const char* command) : stream(popen(command, "re")) {}

    ~CommandOutput()
    {
        const Base::NoCancellation scope;
        if (stream != nullptr) {
            pclose(stream);  // The exit status is ignored.
        }
    }

    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;

    /// Reads to the end of a line, of the buffer or of the output. @return false at the end.
    template <std::size_t size>
    bool ReadPiece(char (&piece)[size])
    {
        return stream != nullptr && fgets(piece, size, stream) != nullptr;
    }

private:
    std::FILE* stream;
};

}  // namespace

std::string ExecCmd_Pipe(const char* command)
{
    CommandOutput output(Base::TextOrEmpty(command));
    std::string text;

    // A read error ends the text too, also an interruption by a signal.
    char piece[200];
    while (output.ReadPiece(piece)) {
        text += piece;
    }
    return text;
}

int ExecCmd_System(const char* command)
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): glibc's version is safe.
    return std::system(Base::TextOrEmpty(command));
}

int WriteFlashConfigFile()
{
    // Required text: the runs of blanks are part of the line.
    return ExecCmd_System("echo \"/dev/mtd1   0x00000 0x2000  0x1000  2\" > /etc/fw_env.config");
}

int ReadFlashVar(const char* name, std::string& value)
{
    const std::string command = std::string("/sbin/fw_printenv -n ") + Base::TextOrEmpty(name);

    // Required: the tool runs twice. The first run tells whether the variable exists. It also
    // writes the value to standard output.
    if (ExecCmd_System(command.c_str()) != 0) {
        return -1;
    }
    // Required: appends to the text in value, and then removes all line ends, also those that value
    // held before.
    value += ExecCmd_Pipe(command.c_str());
    std::erase(value, '\r');
    std::erase(value, '\n');
    return 0;
}

int WriteFlashVar(const char* name, const char* value)
{
    // Required: name and value are not escaped, so the shell interprets what is in them.
    const std::string command = std::string("/sbin/fw_setenv ") + Base::TextOrEmpty(name) + " \"" +
                                Base::TextOrEmpty(value) + "\"";
    return ExecCmd_System(command.c_str());
}

}  // namespace Tolvex::Util
