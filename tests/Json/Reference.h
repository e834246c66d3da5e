/// @file
/// A second parser and serializer, written rule by rule, to test the library's against.
///
/// Slow and recursive on purpose, so that every line can be compared with its rule. Shares no code
/// and no type with the library. Expects the C locale, and no more than some thousand levels of
/// nesting.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace Tolvex::Json::Reference {

/// The tags, with the library's numbers.
enum class Kind : std::int32_t
{
    Null,
    String,
    Int,
    Float,
    Double,
    Object,
    Array,
    Bool
};

/// One value as the rules give it, with all mirrors of a number.
struct Node
{
    Kind kind = Kind::Null;
    std::int32_t intValue = 0;
    float floatValue = 0;
    double doubleValue = 0;
    std::string text;
    std::map<std::string, Node> members;
    std::vector<Node> elements;
    bool truth = false;
};

Node FromInt(std::int32_t number);
Node FromDouble(double number);
Node FromString(const std::string& text);
Node FromBool(bool truth);
Node EmptyObject();
Node EmptyArray();

/// @param sawMalformed  Set to whether the document or a container in it was malformed.
/// @throws std::out_of_range for an unterminated nested container and for a cut `\u` escape.
Node Deserialize(const std::string& text, bool* sawMalformed);

std::string Serialize(const Node& node);
std::string SerializeValue(const Node& node);

}  // namespace Tolvex::Json::Reference
