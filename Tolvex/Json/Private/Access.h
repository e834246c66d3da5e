/// @file
/// The representations of a JSON value, active or not.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tolvex/Base/Private/Saturate.h"
#include "Tolvex/Json/Json.h"

namespace Tolvex::Json {

/// Gives the library's sources the private members of the value classes.
struct Access
{
    static std::vector<Value>& Elements(Array& array) { return array.elements; }
    static const std::vector<Value>& Elements(const Array& array) { return array.elements; }
    static std::map<std::string, Value>& Members(Object& object) { return object.members; }
    static const std::map<std::string, Value>& Members(const Object& object)
    {
        return object.members;
    }

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

    /// @return whether the value has elements or members, active or not.
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

    /// Makes the value a fresh null one, without inactive representations.
    static void Reset(Value& value)
    {
        std::destroy_at(&value);
        std::construct_at(&value);
    }
};

}  // namespace Tolvex::Json
