#include "Tolvex/Log/LogPolicy.h"

#include <iostream>
#include <optional>
#include <utility>

#include "Tolvex/Base/SharedValue.h"
#include "Tolvex/Log/Private/FileOutput.h"
#include "Tolvex/Log/Private/FileSettings.h"

namespace Tolvex::Ilog {

namespace {

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

/// What the application has set, and the file in use.
struct FileLogPolicy::State
{
    std::shared_ptr<FileSettings> settings = std::make_shared<FileSettings>();
    std::shared_ptr<FileOutput> file;  ///< null: no name has been set
};

FileLogPolicy::FileLogPolicy() : state(std::make_shared<State>()) {}

FileLogPolicy::~FileLogPolicy() = default;

void FileLogPolicy::SetOutput(const std::string& name)
{
    if (name != fileName) {
        auto file = std::make_shared<FileOutput>(name, state->settings, state->file.get());
        fileName = name;
        state->file = std::move(file);
    }
    Base::StoreShared(outputSet, true);
}

void FileLogPolicy::RepairEnd()
{
    if (state->file != nullptr) {
        state->file->RepairEnd();
    }
    state->settings->ignitionOff = false;
}

void FileLogPolicy::SetDurability(LogDurability mode, std::chrono::milliseconds interval)
{
    state->settings->interval = interval;
    state->settings->durability = mode;
}

void FileLogPolicy::SetSizeLimit(std::uint64_t bytes, unsigned keptFiles)
{
    state->settings->sizeLimit = SizeLimit(bytes, keptFiles);
}

void FileLogPolicy::BeginIgnitionOff()
{
    state->settings->ignitionOff = true;
}

void FileLogPolicy::Close()
{
    Base::StoreShared(outputSet, false);
}

void FileLogPolicy::Write(const std::string& line)
{
    if (!Base::LoadShared(outputSet) || fileName.empty()) {
        return;
    }
    // A system call that hangs may outlast the policy, so no member is used from here on.
    const std::shared_ptr<FileOutput> file = state->file;
    file->Append(line);
}

ConsoleLogPolicy::ConsoleLogPolicy() = default;

ConsoleLogPolicy::~ConsoleLogPolicy() = default;

void ConsoleLogPolicy::WriteHeader(LogType type)
{
    lineType = type;
}

void ConsoleLogPolicy::Write(const std::string& line)
{
    const std::optional<ColorCode> color = ColorOf(lineType);
    // Written in one piece, so that the output of other threads does not get the colour. A local
    // string, because a write that hangs may outlast the members of the policy.
    // Required: the colour is reset after the newline that ends the line, not before it.
    const std::string colored =
        color ? Escape(*color) + line + Escape(ColorCode::Default) : std::string();
    const std::string& text = color ? colored : line;
    // Not through std::cout: its state belongs to the application, which may be using it now. After
    // a failure a new stream tries again: the failure may have passed.
    std::ostream output(std::cout.rdbuf());
    output.setf(std::cout.flags() & std::ios_base::unitbuf);
    output.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!std::cout.good()) {
        output.flush();  // The flush of std::cout at exit() does nothing in that state.
    }
}

std::ostream& operator<<(std::ostream& stream, const ColoredLog& color)
{
    const std::string escape = Escape(color.code);
    return stream.write(escape.data(), static_cast<std::streamsize>(escape.size()));
}

}  // namespace Tolvex::Ilog
