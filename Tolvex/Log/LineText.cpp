#include "Tolvex/Log/LineText.h"

#include <string>

#include "Tolvex/Log/LineFacts.h"

namespace Tolvex::Ilog {

namespace {

bool IsEndl(std::ostream& (*manipulator)(std::ostream&))
{
    std::ostream& (*const endl)(std::ostream&) = std::endl;
    return manipulator == endl;
}

}  // namespace

void ResetLine(std::stringstream& buffer)
{
    buffer.exceptions(std::ios_base::goodbit);
    buffer.clear();
    buffer.flags(std::ios_base::skipws | std::ios_base::dec);
    buffer.precision(6);
    buffer.width(0);
    buffer.fill(' ');
    if (!buffer.view().empty()) {
        buffer.str(std::string());
    }
}

void AppendLineHeader(std::stringstream& buffer, LogType type)
{
    const LineFacts facts = ReadLineFacts();
    buffer << '[' << facts.Time() << ']';
    if (facts.temperatureKnown) {
        buffer << '[' << facts.temperature << "C]";
    }
    if (type == LogType::Error) {
        buffer << "[ERROR]";
    } else if (type == LogType::Warning) {
        buffer << "[WARNING]";
    }
}

bool EndsWithNewline(const std::stringstream& buffer)
{
    // Required: a newline in the middle of the text ends nothing.
    return buffer.view().ends_with('\n');
}

bool TerminateLine(std::stringstream& buffer)
{
    // A failed insertion, such as of a null pointer, must not keep the line from ending.
    buffer.clear();
    if (buffer.put('\n').good()) {
        return true;
    }
    // No memory for one more character: the newline takes the place of the last one.
    buffer.clear();
    return buffer.seekp(-1, std::ios_base::end).put('\n').good();
}

bool ApplyManipulator(std::stringstream& buffer, std::ostream& (*manipulator)(std::ostream&))
{
    if (IsEndl(manipulator)) {
        return TerminateLine(buffer);
    }
    if (manipulator != nullptr) {
        manipulator(buffer);
    }
    return true;
}

}  // namespace Tolvex::Ilog
