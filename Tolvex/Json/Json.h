/// @file
/// JSON documents in memory, their text, and the way back.
///
/// Value holds one value of any kind, Array a sequence of them, Object a map from key to value that
/// iterates in ascending byte order of its keys. Serialize() and Deserialize() speak a dialect of
/// JSON that differs from the standard in many places; docs/json-dialect.md lists them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Json {

/// Says which representation of a Value is meaningful.
enum ValueType : std::int32_t
{
    NullVal = 0,  ///< null or unset
    StringVal = 1,
    IntVal = 2,     ///< 32-bit signed integer
    FloatVal = 3,   ///< single precision
    DoubleVal = 4,  ///< double precision
    ObjectVal = 5,
    ArrayVal = 6,
    BoolVal = 7
};

class Value;

/// An ordered sequence of values. Copies are deep.
///
/// No depth of nesting overflows the stack, whatever is done; destroying, clearing and moving
/// allocate nothing.
/// @par Errors
/// Indices are not tested: one out of range is undefined.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Array
{
public:
    using iterator = std::vector<Value>::iterator;
    using const_iterator = std::vector<Value>::const_iterator;

    Array() noexcept;
    Array(const Array& other);
    /// Takes the elements over in constant time; other is left empty.
    Array(Array&& other) noexcept;
    ~Array();

    /// Replaces all elements by deep copies; other may be an array inside this one.
    Array& operator=(const Array& other);
    /// Takes the elements over in constant time; other is left empty.
    Array& operator=(Array&& other) noexcept;

    Value& operator[](unsigned int index);
    const Value& operator[](unsigned int index) const;

    iterator begin() noexcept;
    iterator end() noexcept;
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;

    unsigned int size() const noexcept;

    /// Appends a copy; the value may be an element of this array.
    void push_back(const Value& value);
    /// Appends what the value holds, in constant time.
    void push_back(Value&& value);

    /// Inserts a copy before position index; index equal to size() appends.
    void insert(unsigned int index, const Value& value);

    /// Destroys all elements.
    void Clear() noexcept;

    /// @return the first element for which `element == value` holds, or end().
    /// @note Equality is asymmetric, and the element is its left operand.
    iterator find(const Value& value);
    const_iterator find(const Value& value) const;

    /// @return whether find() finds the value.
    bool HasValue(const Value& value) const;

private:
    friend struct Access;

    void ReleaseElements() noexcept;

    std::vector<Value> elements;
};

/// A map from key to value, iterated in ascending byte order of the keys. Copies are deep.
///
/// No depth of nesting overflows the stack, whatever is done; destroying, clearing and moving
/// allocate nothing.
/// @par Errors
/// A key that is absent from a const object is not detected: reading it is undefined. A null
/// pointer for a key throws std::logic_error.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Object
{
public:
    using iterator = std::map<std::string, Value>::iterator;
    using const_iterator = std::map<std::string, Value>::const_iterator;

    Object() noexcept;
    Object(const Object& other);
    /// Takes the members over in constant time; other is left empty.
    Object(Object&& other) noexcept;
    ~Object();

    /// Replaces all members by deep copies; other may be an object inside this one.
    Object& operator=(const Object& other);
    /// Takes the members over in constant time; other is left empty.
    Object& operator=(Object&& other) noexcept;

    iterator begin() noexcept;
    iterator end() noexcept;
    const_iterator begin() const noexcept;
    const_iterator end() const noexcept;

    unsigned int size() const noexcept;

    iterator find(const std::string& key);
    const_iterator find(const std::string& key) const;
    bool HasKey(const std::string& key) const;

    /// @return the index of the first key that is absent; -1 when all are present.
    int HasKeys(const std::vector<std::string>& keys) const;
    /// The same over the first count C strings; -1 at once when count is below 1.
    /// @throws std::logic_error when it meets a null pointer before an absent key.
    int HasKeys(const char** keys, int count) const;

    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const std::string& key);
    Value& operator[](const char* key);
    /// @return the member's value. The key must be present: test with HasKey() first.
    const Value& operator[](const std::string& key) const;
    const Value& operator[](const char* key) const;

    /// @return true when a member was erased, false when the key was absent.
    bool RemoveKey(const std::string& key);

    /// Erases all members.
    void Clear() noexcept;

private:
    friend struct Access;

    void ReleaseMembers() noexcept;

    std::map<std::string, Value> members;
};

/// One JSON value of any kind.
///
/// Every value carries all representations side by side, and its type says which is meaningful. The
/// three representations of a number are filled together when the value is made: ToInt() of 2.9 is
/// 2. Numbers that leave the range of int saturate, and NaN has 0 for an integer.
/// @note A copy has the source's type and the representation that belongs to it, nothing else. A
/// value assigned to keeps its other representations as they were; they stay inactive, but
/// operator== sees them when the right operand is a number.
/// @par Errors
/// An operation that the type does not offer throws std::runtime_error with one of the texts
/// "json mValueType==IsNumeric() required", "json mValueType==BoolVal required",
/// "json mValueType==StringVal required", "json mValueType==ArrayVal required" and
/// "json mValueType==ObjectVal required", and leaves the value as it was. Indices, and keys looked
/// up in a const value, are not tested.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Value
{
public:
    Value() noexcept = default;
    Value(int number) noexcept;
    Value(double number) noexcept;
    Value(const std::string& text);
    Value(std::string&& text) noexcept;
    /// A null pointer makes an empty string.
    Value(const char* text);
    Value(const Object& object);
    Value(Object&& object) noexcept;
    Value(const Array& array);
    Value(Array&& array) noexcept;
    Value(bool flag) noexcept;

    /// Makes a FloatVal: the float, its truncation as integer, its widening as double.
    static Value FromFloat(float number) noexcept;

    Value(const Value& other);
    /// Takes over what a copy would copy, in constant time. other keeps its type; its string,
    /// object or array is left empty.
    Value(Value&& other) noexcept;
    ~Value() = default;

    /// Takes the source's type and its active representation. The source may be inside this value,
    /// or this value inside the source. On an exception this value is as it was.
    Value& operator=(const Value& other);
    /// The same, taking the representation over in constant time. Allocates only when this value is
    /// found inside the source: then the source is copied and keeps what it holds.
    /// @note The search for that ends after a few hundred values. Do not move a larger document
    /// into a place deep inside itself.
    Value& operator=(Value&& other);  // NOLINT(performance-noexcept-move-constructor): may copy

    ValueType GetType() const noexcept { return mValueType; }

    /// @return whether the type is IntVal, FloatVal or DoubleVal.
    bool IsNumeric() const noexcept
    {
        return static_cast<std::uint32_t>(mValueType) - static_cast<std::uint32_t>(IntVal) <= 2U;
    }

    /// For any numeric type: the representation made with the value.
    int ToInt() const;
    float ToFloat() const;
    double ToDouble() const;
    bool ToBool() const;
    const std::string& ToString() const;
    /// @return a copy; AsArray() and AsObject() make none.
    Array ToArray() const;
    Object ToObject() const;

    /// The array itself, valid while this value holds it.
    const Array& AsArray() const;
    /// The object itself, valid while this value holds it.
    const Object& AsObject() const;

    operator int() const;
    operator float() const;
    operator double() const;
    operator bool() const;
    operator std::string() const;
    operator Array() const;
    operator Object() const;

    Value& operator[](unsigned int index);
    const Value& operator[](unsigned int index) const;
    Value& operator[](int index);
    const Value& operator[](int index) const;

    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const std::string& key);
    Value& operator[](const char* key);
    /// @return the member's value. The key must be present: test with HasKey() first.
    const Value& operator[](const std::string& key) const;
    const Value& operator[](const char* key) const;

    /// See Object::HasKey() and Object::HasKeys().
    bool HasKey(const std::string& key) const;
    int HasKeys(const std::vector<std::string>& keys) const;
    int HasKeys(const char** keys, int count) const;

    /// @return the number of members or elements.
    /// @note 1 for every other type, null included.
    int size() const noexcept;

    /// Makes this value null.
    /// @note The string, object and array are kept, inactive, until overwritten or destroyed.
    void Clear() noexcept { mValueType = NullVal; }

private:
    friend struct Access;

    void RequireNumeric() const;
    void RequireBool() const;
    void RequireString() const;
    void RequireArray() const;
    void RequireObject() const;

    void CopyNumbers(const Value& other) noexcept;

    ValueType mValueType = NullVal;
    std::int32_t mIntVal = 0;
    float mFloatVal = 0.0F;
    double mDoubleVal = 0.0;
    std::string mStringVal;
    Object mObjectVal;
    Array mArrayVal;
    bool mBoolVal = false;
};

/// Compares exactly, without tolerance.
///
/// Values of the same type compare their active representations.
/// @note Asymmetric where the types differ. A number on the left compares with any other number,
/// and equals nothing else. A number on the right equals null, and is compared with any other left
/// operand by the representation of that operand's type: it equals "", {}, [] and false unless it
/// holds an inactive representation from before.
TOLVEX_EXPORT bool operator==(const Value& left, const Value& right);
/// Same size, and equal elements in order.
TOLVEX_EXPORT bool operator==(const Array& left, const Array& right);
/// Same size, and equal keys and values in key order.
TOLVEX_EXPORT bool operator==(const Object& left, const Object& right);

/// The compact text of a document; empty when the value is neither object nor array.
///
/// Independent of the process's locale.
/// @note Strings and keys are written as they are, without escapes. Floating-point numbers have six
/// decimals; NaN and infinities are written as nan, -nan, inf and -inf, which do not read back.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT std::string Serialize(const Value& value);
/// The text of any value, null included. Otherwise as Serialize().
TOLVEX_EXPORT std::string SerializeValue(const Value& value);
/// The text of an array. Otherwise as Serialize().
TOLVEX_EXPORT std::string SerializeArray(const Array& array);

/// Reads a document in time and memory linear in its length, independent of the process's locale.
///
/// docs/json-dialect.md says what is accepted and what changes on the way.
/// @return an ObjectVal or ArrayVal, or a null value for text that is malformed or no document.
/// @throws std::out_of_range when a nested container is not closed, or when a `\u` escape is cut
/// off
///         by the end of its string.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT Value Deserialize(const std::string& text);

inline Array::Array() noexcept = default;

inline Array::~Array()
{
    if (!elements.empty()) {
        ReleaseElements();
    }
}

inline Object::Object() noexcept = default;

inline Object::~Object()
{
    if (!members.empty()) {
        ReleaseMembers();
    }
}

inline Value& Array::operator[](unsigned int index)
{
    return elements[index];
}

inline const Value& Array::operator[](unsigned int index) const
{
    return elements[index];
}

inline Array::iterator Array::begin() noexcept
{
    return elements.begin();
}

inline Array::iterator Array::end() noexcept
{
    return elements.end();
}

inline Array::const_iterator Array::begin() const noexcept
{
    return elements.begin();
}

inline Array::const_iterator Array::end() const noexcept
{
    return elements.end();
}

inline unsigned int Array::size() const noexcept
{
    return static_cast<unsigned int>(elements.size());
}

inline Object::iterator Object::begin() noexcept
{
    return members.begin();
}

inline Object::iterator Object::end() noexcept
{
    return members.end();
}

inline Object::const_iterator Object::begin() const noexcept
{
    return members.begin();
}

inline Object::const_iterator Object::end() const noexcept
{
    return members.end();
}

inline unsigned int Object::size() const noexcept
{
    return static_cast<unsigned int>(members.size());
}

}  // namespace Tolvex::Json
