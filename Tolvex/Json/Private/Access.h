/// @file
/// What a JSON value consists of, active or not, and where it stands. Not installed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tolvex/Base/Private/Saturate.h"
#include "Tolvex/Json/Json.h"

namespace Tolvex::Json {

/// The library's own way to the representations of a value, active or not.
struct Access
{
    static std::vector<Value>& Elements(Array& array) { return array.elements; }
    static const std::vector<Value>& Elements(const Array& array) { return array.elements; }
    static std::map<std::string, Value>& Members(Object& object) { return object.members; }
    static const std::map<std::string, Value>& Members(const Object& object)
    {
        return object.members;
    }

    /// Places of a value. Any other number: the number of embeddings (see below) when the value was
    /// added to an Object that was no part of a value then.
    static constexpr std::uint32_t standsAlone = 0;  ///< in no Array and no Object
    static constexpr std::uint32_t inContainer = 1;  ///< in one, or moved out of one

    /// Notes the place of a value that has just been added to a container; leaves an older one's.
    static Value& Place(Value& value, std::uint32_t place)
    {
        if (value.place == standsAlone) {
            value.place = place;
        }
        return value;
    }

    static Value& PlaceInContainer(Value& value) { return Place(value, inContainer); }

    /// The place of what moves out of a place.
    static std::uint32_t MovedPlace(const Value& value)
    {
        return value.place == standsAlone ? standsAlone : inContainer;
    }

    /// @return false when the value is known not to be inside another one.
    static bool MayBeInside(const Value& value);

    static ValueType& Type(Value& value) { return value.mValueType; }
    static std::int32_t Int(const Value& value) { return value.mIntVal; }
    static std::int32_t& Int(Value& value) { return value.mIntVal; }
    static float Float(const Value& value) { return value.mFloatVal; }
    static float& Float(Value& value) { return value.mFloatVal; }
    static double Double(const Value& value) { return value.mDoubleVal; }
    static double& Double(Value& value) { return value.mDoubleVal; }
    static std::string& String(Value& value) { return value.mStringVal; }
    static const std::string& String(const Value& value) { return value.mStringVal; }
    static Object& ObjectOf(Value& value) { return value.mObjectVal; }
    static const Object& ObjectOf(const Value& value) { return value.mObjectVal; }
    static Array& ArrayOf(Value& value) { return value.mArrayVal; }
    static const Array& ArrayOf(const Value& value) { return value.mArrayVal; }
    static bool Bool(const Value& value) { return value.mBoolVal; }
    static bool& Bool(Value& value) { return value.mBoolVal; }

    /// Elements or members, active or not.
    static bool HoldsValues(const Value& value)
    {
        return !value.mArrayVal.elements.empty() || !value.mObjectVal.members.empty();
    }

    static void SetInt(Value& value, std::int32_t number)
    {
        value.mValueType = IntVal;
        value.mIntVal = number;
        value.mFloatVal = static_cast<float>(number);
        value.mDoubleVal = number;
    }

    static void SetDouble(Value& value, double number)
    {
        value.mValueType = DoubleVal;
        value.mIntVal = Base::SaturateToInt32(number);
        value.mFloatVal = static_cast<float>(number);
        value.mDoubleVal = number;
    }

    static void SetBool(Value& value, bool flag)
    {
        value.mValueType = BoolVal;
        value.mBoolVal = flag;
    }

    /// Makes the value a fresh null one in the same place, without inactive representations.
    static void Reset(Value& value)
    {
        const std::uint32_t place = value.place;
        std::destroy_at(&value);
        std::construct_at(&value);
        value.place = place;
    }
};

/// Notes that an object becomes part of a value, together with all its members.
///
/// Nobody tells the members, which may be many: they remember how often this had happened when they
/// were added, and so know when it has not happened since.
void CountEmbedding() noexcept;

/// How often an object has become part of a value: the place of a new member of an Object.
std::uint32_t CurrentEmbeddings() noexcept;

inline bool Access::MayBeInside(const Value& value)
{
    return value.place == inContainer ||
           (value.place != standsAlone && value.place != CurrentEmbeddings());
}

}  // namespace Tolvex::Json
