#include <stdexcept>
#include <utility>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"

namespace Tolvex::Json {

#if defined(__x86_64__) && defined(__LP64__)
static_assert(sizeof(Value) == 136);
#endif

Value::Value(int number) noexcept
{
    Access::SetInt(*this, number);
}

Value::Value(double number) noexcept
{
    Access::SetDouble(*this, number);
}

Value::Value(const std::string& text) : mValueType(StringVal), mStringVal(text) {}

Value::Value(std::string&& text) noexcept : mValueType(StringVal), mStringVal(std::move(text)) {}

Value::Value(const char* text) : mValueType(StringVal), mStringVal(text != nullptr ? text : "") {}

Value::Value(const Object& object) : mValueType(ObjectVal), mObjectVal(object) {}

Value::Value(Object&& object) noexcept : mValueType(ObjectVal), mObjectVal(std::move(object)) {}

Value::Value(const Array& array) : mValueType(ArrayVal), mArrayVal(array) {}

Value::Value(Array&& array) noexcept : mValueType(ArrayVal), mArrayVal(std::move(array)) {}

Value::Value(bool flag) noexcept : mValueType(BoolVal), mBoolVal(flag) {}

Value Value::FromFloat(float number) noexcept
{
    Value value;
    value.mValueType = FloatVal;
    value.mIntVal = Base::SaturateToInt32(static_cast<double>(number));
    value.mFloatVal = number;
    value.mDoubleVal = static_cast<double>(number);
    return value;
}

void Value::CopyNumbers(const Value& other) noexcept
{
    if (other.mValueType == IntVal) {
        Access::SetInt(*this, other.mIntVal);
    } else if (other.mValueType == DoubleVal) {
        Access::SetDouble(*this, other.mDoubleVal);
    } else if (other.mValueType == FloatVal) {
        mValueType = FloatVal;
        mFloatVal = other.mFloatVal;
        mIntVal = Base::SaturateToInt32(static_cast<double>(mFloatVal));
        mDoubleVal = other.mDoubleVal;
    }
}

Value::Value(const Value& other)
{
    *this = other;
}

Value::Value(Value&& other) noexcept
{
    *this = std::move(other);
}

// Required: the representations of all other types keep what they held, inactive.
Value& Value::operator=(const Value& other)
{
    if (this == &other) {
        return *this;
    }

    // other may be nested in what is replaced here, so it must not be read after that.
    const ValueType type = other.mValueType;
    switch (type) {
        case NullVal:
            break;
        case StringVal:
            mStringVal = other.mStringVal;
            break;
        case IntVal:
        case FloatVal:
        case DoubleVal:
            CopyNumbers(other);
            break;
        case ObjectVal:
            mObjectVal = other.mObjectVal;
            break;
        case ArrayVal:
            mArrayVal = other.mArrayVal;
            break;
        case BoolVal:
            mBoolVal = other.mBoolVal;
            break;
    }
    mValueType = type;
    return *this;
}

Value& Value::operator=(Value&& other) noexcept
{
    if (this == &other) {
        return *this;
    }
    // other may be nested in what is replaced here, so it must not be read after that.
    const ValueType type = other.mValueType;
    switch (type) {
        case NullVal:
            break;
        case StringVal:
            mStringVal = std::move(other.mStringVal);
            break;
        case IntVal:
        case FloatVal:
        case DoubleVal:
            CopyNumbers(other);
            break;
        case ObjectVal:
            mObjectVal = std::move(other.mObjectVal);
            break;
        case ArrayVal:
            mArrayVal = std::move(other.mArrayVal);
            break;
        case BoolVal:
            mBoolVal = other.mBoolVal;
            break;
    }
    mValueType = type;
    return *this;
}

void Value::RequireNumeric() const
{
    if (!IsNumeric()) {
        throw std::runtime_error("json mValueType==IsNumeric() required");
    }
}

void Value::RequireBool() const
{
    if (mValueType != BoolVal) {
        throw std::runtime_error("json mValueType==BoolVal required");
    }
}

void Value::RequireString() const
{
    if (mValueType != StringVal) {
        throw std::runtime_error("json mValueType==StringVal required");
    }
}

void Value::RequireArray() const
{
    if (mValueType != ArrayVal) {
        throw std::runtime_error("json mValueType==ArrayVal required");
    }
}

void Value::RequireObject() const
{
    if (mValueType != ObjectVal) {
        throw std::runtime_error("json mValueType==ObjectVal required");
    }
}

int Value::ToInt() const
{
    RequireNumeric();
    return mIntVal;
}

float Value::ToFloat() const
{
    RequireNumeric();
    return mFloatVal;
}

double Value::ToDouble() const
{
    RequireNumeric();
    return mDoubleVal;
}

bool Value::ToBool() const
{
    RequireBool();
    return mBoolVal;
}

const std::string& Value::ToString() const
{
    RequireString();
    return mStringVal;
}

Array Value::ToArray() const
{
    return AsArray();
}

Object Value::ToObject() const
{
    return AsObject();
}

const Array& Value::AsArray() const
{
    RequireArray();
    return mArrayVal;
}

const Object& Value::AsObject() const
{
    RequireObject();
    return mObjectVal;
}

Value::operator int() const
{
    return ToInt();
}

Value::operator float() const
{
    return ToFloat();
}

Value::operator double() const
{
    return ToDouble();
}

Value::operator bool() const
{
    return ToBool();
}

Value::operator std::string() const
{
    return ToString();
}

Value::operator Array() const
{
    return AsArray();
}

Value::operator Object() const
{
    return AsObject();
}

Value& Value::operator[](unsigned int index)
{
    RequireArray();
    return mArrayVal[index];
}

const Value& Value::operator[](unsigned int index) const
{
    RequireArray();
    return mArrayVal[index];
}

Value& Value::operator[](int index)
{
    return (*this)[static_cast<unsigned int>(index)];
}

const Value& Value::operator[](int index) const
{
    return (*this)[static_cast<unsigned int>(index)];
}

Value& Value::operator[](const std::string& key)
{
    RequireObject();
    return mObjectVal[key];
}

Value& Value::operator[](const char* key)
{
    RequireObject();
    return mObjectVal[key];
}

const Value& Value::operator[](const std::string& key) const
{
    return AsObject()[key];
}

const Value& Value::operator[](const char* key) const
{
    return AsObject()[key];
}

bool Value::HasKey(const std::string& key) const
{
    return AsObject().HasKey(key);
}

int Value::HasKeys(const std::vector<std::string>& keys) const
{
    return AsObject().HasKeys(keys);
}

int Value::HasKeys(const char** keys, int count) const
{
    return AsObject().HasKeys(keys, count);
}

int Value::size() const noexcept
{
    if (mValueType == ObjectVal) {
        return static_cast<int>(mObjectVal.size());
    }
    if (mValueType == ArrayVal) {
        return static_cast<int>(mArrayVal.size());
    }
    // Required: the size of all other types is 1, also that of null.
    return 1;
}

}  // namespace Tolvex::Json
