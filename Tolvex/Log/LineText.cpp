#include "Tolvex/Log/LineText.h"

#include <charconv>
#include <string>

#include "Tolvex/Log/Private/LineFacts.h"

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

LineHeader::LineHeader(LogType lineType) : type(lineType)
{
    Make();
}

void LineHeader::Make()
{
    const LineFacts facts = ReadLineFacts();
    second = facts.second;
    length = 0;
    Append("[");
    Append(facts.Time());
    Append("]");
    if (facts.temperatureKnown) {
        std::array<char, 16> number;
        const char* const end = std::to_chars(number.begin(), number.end(), facts.temperature).ptr;
        Append("[");
        Append({number.data(), static_cast<std::size_t>(end - number.data())});
        Append("C]");
    }
    if (type == LogType::Error) {
        Append("[ERROR]");
    } else if (type == LogType::Warning) {
        Append("[WARNING]");
    }
}

void LineHeader::Append(std::string_view piece)
{
    length += piece.copy(text.data() + length, text.size() - length);
}

void LineHeader::InsertInto(std::stringstream& buffer)
{
    if (std::time(nullptr) != second) {
        Make();
    }
    buffer << std::string_view(text.data(), length);
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
