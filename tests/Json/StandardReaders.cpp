#include "tests/Json/StandardReaders.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <map>

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>

#include "Tolvex/Json/Standard.h"

namespace Tolvex::Json::Judge {
namespace {

using Tree = nlohmann::json;

/// The string with U+FFFD for all that is no UTF-8, by somebody else's writer.
std::string Replaced(const std::string& bytes)
{
    return Tree::parse(Tree(bytes).dump(-1, ' ', false, Tree::error_handler_t::replace));
}

bool SameNumber(double read, double expected)
{
    return std::bit_cast<std::uint64_t>(read) == std::bit_cast<std::uint64_t>(expected);
}

bool SameFloating(const Tree& tree, const Value& value)
{
    if (!std::isfinite(value.ToDouble())) {
        return tree.is_null();
    }
    if (!tree.is_number_float()) {
        return false;
    }
    return value.GetType() == DoubleVal
               ? SameNumber(tree.get<double>(), value.ToDouble())
               : static_cast<float>(tree.get<double>()) == value.ToFloat() &&
                     std::signbit(tree.get<double>()) == std::signbit(value.ToFloat());
}

bool SameElements(const Tree& tree, const Array& array);
bool SameMembers(const Tree& tree, const Object& object);

bool Same(const Tree& tree, const Value& value)
{
    switch (value.GetType()) {
        case NullVal:
            return tree.is_null();
        case StringVal:
            return tree.is_string() && tree.get<std::string>() == Replaced(value.ToString());
        case IntVal:
            return tree.is_number_integer() && tree.get<std::int64_t>() == value.ToInt();
        case FloatVal:
        case DoubleVal:
            return SameFloating(tree, value);
        case BoolVal:
            return tree.is_boolean() && tree.get<bool>() == value.ToBool();
        case ArrayVal:
        case ObjectVal:
            break;
    }
    return value.GetType() == ObjectVal ? SameMembers(tree, value.AsObject())
                                        : SameElements(tree, value.AsArray());
}

bool SameElements(const Tree& tree, const Array& array)
{
    return tree.is_array() &&
           std::equal(tree.begin(), tree.end(), array.begin(), array.end(), Same);
}

bool SameMembers(const Tree& tree, const Object& object)
{
    std::map<std::string, const Value*> expected;
    for (const auto& [key, member] : object) {
        expected[Replaced(key)] = &member;  // of keys that become equal the last one is read
    }
    return tree.is_object() && tree.size() == expected.size() &&
           std::all_of(expected.begin(), expected.end(), [&tree](const auto& member) {
               return tree.contains(member.first) && Same(tree[member.first], *member.second);
           });
}

/// What RapidJSON reads, as the other reader's kind of tree.
Tree ToTree(const rapidjson::Value& value)
{
    switch (value.GetType()) {
        case rapidjson::kNullType:
            return nullptr;
        case rapidjson::kFalseType:
        case rapidjson::kTrueType:
            return value.GetBool();
        case rapidjson::kStringType:
            return std::string(value.GetString(), value.GetStringLength());
        case rapidjson::kNumberType:
            return value.IsInt() ? Tree(value.GetInt()) : Tree(value.GetDouble());
        case rapidjson::kArrayType:
        case rapidjson::kObjectType:
            break;
    }
    if (value.IsArray()) {
        Tree tree = Tree::array();
        for (const rapidjson::Value& element : value.GetArray()) {
            tree.push_back(ToTree(element));
        }
        return tree;
    }
    Tree tree = Tree::object();
    for (const auto& member : value.GetObject()) {
        tree[std::string(member.name.GetString(), member.name.GetStringLength())] =
            ToTree(member.value);
    }
    return tree;
}

}  // namespace

std::string StandardComplaint(const Value& value)
{
    const std::string text = SerializeStandard(value);
    const Tree tree = Tree::parse(text, nullptr, false);
    if (tree.is_discarded()) {
        return "nlohmann refuses " + text;
    }
    if (!Same(tree, value)) {
        return "nlohmann reads another value from " + text;
    }
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag | rapidjson::kParseValidateEncodingFlag>(
        text.data(), text.size());
    if (document.HasParseError()) {
        return "RapidJSON refuses " + text;
    }
    if (!Same(ToTree(document), value)) {
        return "RapidJSON reads another value from " + text;
    }
    return "";
}

}  // namespace Tolvex::Json::Judge
