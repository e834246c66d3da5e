#include "tests/Json/Judge.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <optional>
#include <typeinfo>
#include <utility>

#include "Tolvex/Json/ParseError.h"

namespace Tolvex::Json::Judge {
namespace {

using Reference::Kind;
using Reference::Node;

bool SameBits(float a, float b)
{
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}

bool SameBits(double a, double b)
{
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

/// A number on the right shows what its inactive members hold.
bool HoldsNothingInactive(const Value& number)
{
    static const Value noText{std::string()};
    static const Value noObject{Object()};
    static const Value noArray{Array()};
    static const Value noTruth{false};
    return noText == number && noObject == number && noArray == number && noTruth == number;
}

bool SameNumber(const Value& value, const Node& node)
{
    return value.ToInt() == node.intValue && SameBits(value.ToFloat(), node.floatValue) &&
           SameBits(value.ToDouble(), node.doubleValue) && HoldsNothingInactive(value);
}

bool SameMembers(const Object& object, const Node& node)
{
    return object.size() == node.members.size() &&
           std::equal(object.begin(), object.end(), node.members.begin(),
                      [](const auto& entry, const auto& member) {
                          return entry.first == member.first && Same(entry.second, member.second);
                      });
}

bool SameElements(const Array& array, const Node& node)
{
    return array.size() == node.elements.size() &&
           std::equal(array.begin(), array.end(), node.elements.begin(), Same);
}

/// The tree that a library value holds.
Node ToNode(const Value& value)
{
    Node node;
    node.kind = static_cast<Kind>(value.GetType());
    if (value.IsNumeric()) {
        node.intValue = value.ToInt();
        node.floatValue = value.ToFloat();
        node.doubleValue = value.ToDouble();
    } else if (node.kind == Kind::String) {
        node.text = value.ToString();
    } else if (node.kind == Kind::Bool) {
        node.truth = value.ToBool();
    } else if (node.kind == Kind::Array) {
        for (const Value& element : value.AsArray()) {
            node.elements.push_back(ToNode(element));
        }
    } else if (node.kind == Kind::Object) {
        for (const auto& [key, member] : value.AsObject()) {
            node.members[key] = ToNode(member);
        }
    }
    return node;
}

std::string NameOf(const std::exception& exception)
{
    int status = 0;
    char* name = abi::__cxa_demangle(typeid(exception).name(), nullptr, nullptr, &status);
    std::string copy = name == nullptr ? typeid(exception).name() : name;
    std::free(name);
    return copy;
}

/// Calls a reading and turns the exception that leaves it into its name.
template <typename Reading>
std::string NameOfExceptionFrom(Reading reading)
{
    try {
        reading();
    } catch (const std::exception& exception) {
        return NameOf(exception);
    }
    return "";
}

/// The library's value, or nothing where an exception left the reading.
struct LibraryReading
{
    std::optional<Value> value;
    std::string exception;
    ParseError error;  ///< stays empty if none was asked for
};

LibraryReading ReadValue(const std::string& text)
{
    LibraryReading reading;
    reading.exception = NameOfExceptionFrom([&] { reading.value = Json::Deserialize(text); });
    return reading;
}

LibraryReading ReadValueAndError(const std::string& text)
{
    LibraryReading reading;
    reading.exception =
        NameOfExceptionFrom([&] { reading.value = Json::Deserialize(text, reading.error); });
    return reading;
}

/// Whether line and column are those of the offset.
bool IsPlaceIn(const std::string& text, const ParseError& error)
{
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t at = 0; at < std::min(error.offset, text.size()); ++at) {
        const bool continues = (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
        column = text[at] == '\n' ? 1 : (continues ? column : column + 1);
        line = text[at] == '\n' ? line + 1 : line;
    }
    return error.offset <= text.size() && error.line == line && error.column == column;
}

bool SameOutcome(const LibraryReading& actual, const Outcome& expected)
{
    if (actual.exception != expected.exception) {
        return false;
    }
    return !actual.value || Same(*actual.value, expected.tree);
}

std::string Complain(const std::string& what, const std::string& text, const std::string& actual,
                     const std::string& expected)
{
    const std::string note = actual == expected ? " (and holds inactive members)" : "";
    return what + " " + Quoted(text) + "\n  library:   " + actual + note +
           "\n  reference: " + expected;
}

/// Reads the text both ways. Sets the library's value and the reference's tree.
std::string ComplaintAboutReading(const std::string& text, std::optional<Value>& value, Node& tree)
{
    LibraryReading actual = ReadValue(text);
    Outcome expected = ReadByReference(text);
    if (!SameOutcome(actual, expected)) {
        return Complain("reading", text, Describe(ReadByLibrary(text)), Describe(expected));
    }
    const LibraryReading explained = ReadValueAndError(text);
    if (!SameOutcome(explained, expected)) {
        return "reading with an error differs " + Quoted(text);
    }
    if (explained.error.reason.empty() == expected.malformed ||
        (expected.malformed && !IsPlaceIn(text, explained.error))) {
        return "error of " + Quoted(text) + ": " + std::to_string(explained.error.offset) + " " +
               explained.error.reason;
    }
    value = std::move(actual.value);
    tree = std::move(expected.tree);
    return "";
}

/// With a point or an exponent, in as few digits as tell the number from all others.
std::string Shortest(double number)
{
    char text[32];
    if (number == std::trunc(number) && std::abs(number) < 1e17) {
        std::snprintf(text, sizeof text, "%.1f", number);
        return text;
    }
    for (int digits = 1; digits <= 17; ++digits) {
        std::snprintf(text, sizeof text, "%.*g", digits, number);
        if (std::strtod(text, nullptr) == number) {
            break;
        }
    }
    return text;
}

bool SameNumber(const Node& a, const Node& b)
{
    return a.intValue == b.intValue && SameBits(a.floatValue, b.floatValue) &&
           SameBits(a.doubleValue, b.doubleValue);
}

std::string MirrorsText(const Node& node)
{
    char text[100];
    std::snprintf(text, sizeof text, "(int %ld, float %08lx, double %016llx)",
                  static_cast<long>(node.intValue),
                  static_cast<unsigned long>(std::bit_cast<std::uint32_t>(node.floatValue)),
                  static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(node.doubleValue)));
    return text;
}

std::string NumberText(const Node& node)
{
    if (node.kind == Kind::Int && SameNumber(node, Reference::FromInt(node.intValue))) {
        return std::to_string(node.intValue);
    }
    if (node.kind == Kind::Double && !std::isnan(node.doubleValue) &&
        SameNumber(node, Reference::FromDouble(node.doubleValue))) {
        return Shortest(node.doubleValue);
    }
    return "number " + std::to_string(static_cast<int>(node.kind)) + MirrorsText(node);
}

std::string MembersText(const Node& node)
{
    std::string text = "{";
    for (const auto& [key, member] : node.members) {
        text += (text.size() == 1 ? "" : ",") + Quoted(key) + ":" + Describe(member);
    }
    return text + "}";
}

std::string ElementsText(const Node& node)
{
    std::string text = "[";
    for (const Node& element : node.elements) {
        text += (text.size() == 1 ? "" : ",") + Describe(element);
    }
    return text + "]";
}

/// Removes the range if the library still gets the rest wrong.
bool Drop(std::string& text, std::size_t from, std::size_t count)
{
    std::string shorter = text;
    shorter.erase(from, count);
    if (Complaint(shorter).empty()) {
        return false;
    }
    text = shorter;
    return true;
}

/// Removes two characters if the library still gets the rest wrong.
bool DropPair(std::string& text, std::size_t first, std::size_t second)
{
    std::string shorter = text;
    shorter.erase(second, 1).erase(first, 1);
    if (Complaint(shorter).empty()) {
        return false;
    }
    text = shorter;
    return true;
}

void DropRanges(std::string& text, std::size_t count)
{
    std::size_t from = 0;
    while (from < text.size()) {
        from += Drop(text, from, count) ? 0 : count;
    }
}

/// Often an opening and a closing character can only be removed together.
void DropPairs(std::string& text)
{
    for (std::size_t first = 0; first < text.size(); ++first) {
        for (std::size_t second = first + 1; second < text.size(); ++second) {
            DropPair(text, first, second);
        }
    }
}

}  // namespace

Outcome ReadByReference(const std::string& text)
{
    Outcome outcome;
    outcome.malformed = true;
    outcome.exception = NameOfExceptionFrom(
        [&] { outcome.tree = Reference::Deserialize(text, &outcome.malformed); });
    return outcome;
}

Outcome ReadByLibrary(const std::string& text)
{
    const LibraryReading reading = ReadValue(text);
    return {reading.value ? ToNode(*reading.value) : Node(), reading.exception};
}

bool Same(const Value& value, const Node& node)
{
    if (static_cast<std::int32_t>(value.GetType()) != static_cast<std::int32_t>(node.kind)) {
        return false;
    }
    switch (node.kind) {
        case Kind::Null:
            return true;
        case Kind::String:
            return value.ToString() == node.text;
        case Kind::Int:
        case Kind::Float:
        case Kind::Double:
            return SameNumber(value, node);
        case Kind::Object:
            return SameMembers(value.AsObject(), node);
        case Kind::Array:
            return SameElements(value.AsArray(), node);
        case Kind::Bool:
            return value.ToBool() == node.truth;
    }
    return false;
}

Value ToValue(const Node& node)
{
    switch (node.kind) {
        case Kind::Null:
            return Value();
        case Kind::String:
            return Value(node.text);
        case Kind::Int:
            return Value(static_cast<int>(node.intValue));
        case Kind::Float:
            return Value::FromFloat(node.floatValue);
        case Kind::Double:
            return Value(node.doubleValue);
        case Kind::Bool:
            return Value(node.truth);
        case Kind::Array:
        case Kind::Object:
            break;
    }
    if (node.kind == Kind::Array) {
        Array array;
        for (const Node& element : node.elements) {
            array.push_back(ToValue(element));
        }
        return Value(array);
    }
    Object object;
    for (const auto& [key, member] : node.members) {
        object[key] = ToValue(member);
    }
    return Value(object);
}

std::string Describe(const Node& node)
{
    switch (node.kind) {
        case Kind::Null:
            return "null";
        case Kind::String:
            return Quoted(node.text);
        case Kind::Int:
        case Kind::Float:
        case Kind::Double:
            return NumberText(node);
        case Kind::Object:
            return MembersText(node);
        case Kind::Array:
            return ElementsText(node);
        case Kind::Bool:
            return node.truth ? "true" : "false";
    }
    return "unknown tag";
}

std::string Describe(const Outcome& outcome)
{
    return outcome.exception.empty() ? Describe(outcome.tree) : "throws " + outcome.exception;
}

std::string Quoted(const std::string& text)
{
    std::string quoted = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            quoted += {'\\', c};
        } else if (byte >= 0x20 && byte < 0x7f) {
            quoted += c;
        } else {
            char octal[8];
            std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned int>(byte));
            quoted += octal;
        }
    }
    return quoted + "\"";
}

std::string Complaint(const std::string& text)
{
    std::optional<Value> value;
    Node tree;
    std::string complaint = ComplaintAboutReading(text, value, tree);
    if (!complaint.empty() || !value) {
        return complaint;
    }

    const std::string written = Json::Serialize(*value);
    const std::string expected = Reference::Serialize(tree);
    if (written != expected) {
        return Complain("writing", text, Quoted(written), Quoted(expected));
    }
    if (written == text) {
        return "";
    }
    return ComplaintAboutReading(written, value, tree);
}

std::string Minimised(std::string text)
{
    std::size_t before = 0;
    do {
        before = text.size();
        for (std::size_t count = text.size() / 2; count > 0; count /= 2) {
            DropRanges(text, count);
        }
        DropPairs(text);
    } while (text.size() < before);
    return text;
}

}  // namespace Tolvex::Json::Judge
