/// @file
/// JSON documents in memory, their text, and the way back.
///
/// Value holds one value of any kind, Array a sequence of them, Object a map from key to value that
/// iterates in ascending byte order of its keys. Serialize() and Deserialize() speak a dialect of
/// JSON that differs from the standard in many places; docs/json-dialect.md lists them.
/// @code
/// Json::Value settings = Json::Deserialize(R"({"camera":{"fps":25},"zones":["north"]})");
/// const int fps = settings["camera"].HasKey("fps") ? settings["camera"]["fps"].ToInt() : 30;
/// settings["camera"]["fps"] = fps / 2;
/// for (const Json::Value& zone : settings["zones"].AsArray()) {
///     std::cout << zone.ToString() << '\n';
/// }
/// std::cout << Json::Serialize(settings) << '\n';  // {"camera":{"fps":12},"zones":["north"]}
/// @endcode
#pragma once

#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Tolvex/Types/Export.h"

namespace Tolvex::Json {

/// Says which representation of a Value is meaningful.
enum ValueType : std::int32_t
{
    NullVal = 0,    ///< null or unset
    StringVal = 1,  ///< text of any bytes
    IntVal = 2,     ///< 32-bit signed integer
    FloatVal = 3,   ///< single precision
    DoubleVal = 4,  ///< double precision
    ObjectVal = 5,  ///< map from key to value
    ArrayVal = 6,   ///< sequence of values
    BoolVal = 7     ///< true or false
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
    /// Goes through the elements; good until one is added or all are replaced or destroyed.
    using iterator = std::vector<Value>::iterator;
    /// The same for elements that are only read.
    using const_iterator = std::vector<Value>::const_iterator;

    /// Makes an empty array.
    Array() noexcept;
    /// @param other  Copied deeply.
    Array(const Array& other);
    /// @param other  Its elements are taken over in constant time; left empty.
    Array(Array&& other) noexcept;
    /// Destroys all elements, at any depth; allocates nothing.
    ~Array();

    /// Replaces all elements by deep copies.
    ///
    /// @param other  May be an array inside this one.
    /// @return this array.
    Array& operator=(const Array& other);
    /// Replaces all elements, in constant time but for the destruction of the old ones.
    ///
    /// @param other  Its elements are taken over; left empty.
    /// @return this array.
    Array& operator=(Array&& other) noexcept;

    /// @param index  Below size(); not tested.
    /// @return the element itself.
    Value& operator[](unsigned int index);
    /// @param index  Below size(); not tested.
    /// @return the element itself.
    const Value& operator[](unsigned int index) const;

    /// @return the first element; end() when there is none.
    iterator begin() noexcept;
    /// @return the place behind the last element.
    iterator end() noexcept;
    /// @return the first element; end() when there is none.
    const_iterator begin() const noexcept;
    /// @return the place behind the last element.
    const_iterator end() const noexcept;

    /// @return the number of elements.
    unsigned int size() const noexcept;

    /// Appends a copy.
    ///
    /// @param value  May be an element of this array.
    void push_back(const Value& value);
    /// Appends what the value holds, in constant time.
    ///
    /// @param value  Left as a move leaves it: see Value::Value(Value&&).
    void push_back(Value&& value);

    /// Inserts a copy.
    ///
    /// @param index  Position of the copy, at most size(), which appends; not tested.
    /// @param value  May be an element of this array.
    void insert(unsigned int index, const Value& value);

    /// Destroys all elements.
    void Clear() noexcept;

    /// @param value  Right operand of the comparisons.
    /// @return the first element for which `element == value` holds, or end().
    /// @note Equality is asymmetric, and the element is its left operand.
    iterator find(const Value& value);
    /// As the other find(), for elements that are only read.
    ///
    /// @param value  Right operand of the comparisons.
    /// @return the first element for which `element == value` holds, or end().
    const_iterator find(const Value& value) const;

    /// @param value  As for find().
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
    /// Goes through pairs of key and value; good until its member is erased or all are replaced.
    using iterator = std::map<std::string, Value>::iterator;
    /// The same for members that are only read.
    using const_iterator = std::map<std::string, Value>::const_iterator;

    /// Makes an empty object.
    Object() noexcept;
    /// @param other  Copied deeply.
    Object(const Object& other);
    /// @param other  Its members are taken over in constant time; left empty.
    Object(Object&& other) noexcept;
    /// Destroys all members, at any depth; allocates nothing.
    ~Object();

    /// Replaces all members by deep copies.
    ///
    /// @param other  May be an object inside this one.
    /// @return this object.
    Object& operator=(const Object& other);
    /// Replaces all members, in constant time but for the destruction of the old ones.
    ///
    /// @param other  Its members are taken over; left empty.
    /// @return this object.
    Object& operator=(Object&& other) noexcept;

    /// @return the member with the lowest key; end() when there is none.
    iterator begin() noexcept;
    /// @return the place behind the last member.
    iterator end() noexcept;
    /// @return the member with the lowest key; end() when there is none.
    const_iterator begin() const noexcept;
    /// @return the place behind the last member.
    const_iterator end() const noexcept;

    /// @return the number of members.
    unsigned int size() const noexcept;

    /// @param key  Compared byte by byte.
    /// @return the member, or end().
    iterator find(const std::string& key);
    /// @param key  Compared byte by byte.
    /// @return the member, or end().
    const_iterator find(const std::string& key) const;
    /// @param key  Compared byte by byte.
    /// @return whether there is such a member.
    bool HasKey(const std::string& key) const;

    /// @param keys  Looked up in this order.
    /// @return the index of the first key that is absent; -1 when all are present.
    int HasKeys(const std::vector<std::string>& keys) const;
    /// @param keys   NUL-terminated, looked up in this order.
    /// @param count  Number of keys; below 1 gives -1 at once.
    /// @return the index of the first key that is absent; -1 when all are present.
    /// @throws std::logic_error when it meets a null pointer before an absent key.
    int HasKeys(const char** keys, int count) const;

    /// @param key  Any bytes.
    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const std::string& key);
    /// @param key  NUL-terminated.
    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const char* key);
    /// @param key  Must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const std::string& key) const;
    /// @param key  NUL-terminated; must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const char* key) const;

    /// @param key  Compared byte by byte.
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
    /// Makes a NullVal.
    Value() noexcept = default;
    /// Makes an IntVal.
    /// @param number  Its float and double are the nearest ones.
    Value(int number) noexcept;
    /// Makes a DoubleVal.
    /// @param number  Truncated toward zero for the integer; the float is the nearest one.
    Value(double number) noexcept;
    /// Makes a StringVal.
    /// @param text  Any bytes, NUL included.
    Value(const std::string& text);
    /// Makes a StringVal, in constant time.
    /// @param text  Taken over.
    Value(std::string&& text) noexcept;
    /// Makes a StringVal.
    /// @param text  NUL-terminated; null makes an empty string.
    Value(const char* text);
    /// Makes an ObjectVal.
    /// @param object  Copied deeply.
    Value(const Object& object);
    /// Makes an ObjectVal, in constant time.
    /// @param object  Its members are taken over; left empty.
    Value(Object&& object) noexcept;
    /// Makes an ArrayVal.
    /// @param array  Copied deeply.
    Value(const Array& array);
    /// Makes an ArrayVal, in constant time.
    /// @param array  Its elements are taken over; left empty.
    Value(Array&& array) noexcept;
    /// Makes a BoolVal.
    /// @param flag  The value.
    Value(bool flag) noexcept;

    /// Makes a FloatVal, which no constructor does.
    ///
    /// @param number  Truncated toward zero for the integer, and widened for the double.
    /// @return the value.
    static Value FromFloat(float number) noexcept;

    /// Takes the type and the representation that belongs to it, nothing else.
    /// @param other  Copied deeply.
    Value(const Value& other);
    /// Takes over what a copy would copy, in constant time.
    /// @param other  Keeps its type; its string, object or array is left empty.
    Value(Value&& other) noexcept;
    /// Destroys all representations, at any depth; allocates nothing.
    ~Value() = default;

    /// Takes the source's type and its active representation. On an exception this value is as it
    /// was.
    ///
    /// @param other  May be inside this value, or this value inside it.
    /// @return this value.
    Value& operator=(const Value& other);
    /// Takes the source's type and takes over its active representation, in constant time but for
    /// the destruction of what is replaced.
    ///
    /// @param other  May be inside this value: `v = std::move(v["k"])`. Left as a move leaves it:
    ///               see Value(Value&&).
    /// @return this value.
    /// @warning Do not move a value into something that it contains: `v["k"] = std::move(v)`. The
    /// value is lost, and its memory may leak. Copy instead: `v["k"] = Json::Value(v)`.
    Value& operator=(Value&& other) noexcept;

    /// @return which representation is meaningful.
    ValueType GetType() const noexcept { return mValueType; }

    /// @return whether the type is IntVal, FloatVal or DoubleVal.
    bool IsNumeric() const noexcept
    {
        return static_cast<std::uint32_t>(mValueType) - static_cast<std::uint32_t>(IntVal) <= 2U;
    }

    /// @return the integer of any numeric type: 2 for 2.9.
    int ToInt() const;
    /// @return the float of any numeric type.
    float ToFloat() const;
    /// @return the double of any numeric type.
    double ToDouble() const;
    /// @return the flag of a BoolVal.
    bool ToBool() const;
    /// @return the text of a StringVal itself, valid while this value holds it.
    const std::string& ToString() const;
    /// @return a deep copy of the array of an ArrayVal; AsArray() makes none.
    Array ToArray() const;
    /// @return a deep copy of the object of an ObjectVal; AsObject() makes none.
    Object ToObject() const;

    /// @return the array of an ArrayVal itself, valid while this value holds it.
    const Array& AsArray() const;
    /// @return the object of an ObjectVal itself, valid while this value holds it.
    const Object& AsObject() const;

    /// As ToInt().
    operator int() const;
    /// As ToFloat().
    operator float() const;
    /// As ToDouble().
    operator double() const;
    /// As ToBool().
    operator bool() const;
    /// As ToString(), in a copy.
    operator std::string() const;
    /// As ToArray().
    operator Array() const;
    /// As ToObject().
    operator Object() const;

    /// @param index  Below size(); not tested.
    /// @return the element of an ArrayVal itself.
    Value& operator[](unsigned int index);
    /// @param index  Below size(); not tested.
    /// @return the element of an ArrayVal itself.
    const Value& operator[](unsigned int index) const;
    /// @param index  0 or more, and below size(); not tested.
    /// @return the element of an ArrayVal itself.
    Value& operator[](int index);
    /// @param index  0 or more, and below size(); not tested.
    /// @return the element of an ArrayVal itself.
    const Value& operator[](int index) const;
    /// The same for all other integer types, std::size_t among them.
    ///
    /// @param index  0 or more, and below size(); not tested.
    /// @return the element of an ArrayVal itself.
    template <std::integral Index>
    Value& operator[](Index index)
    {
        return (*this)[static_cast<unsigned int>(index)];
    }
    /// The same for all other integer types, std::size_t among them.
    ///
    /// @param index  0 or more, and below size(); not tested.
    /// @return the element of an ArrayVal itself.
    template <std::integral Index>
    const Value& operator[](Index index) const
    {
        return (*this)[static_cast<unsigned int>(index)];
    }

    /// @param key  Any bytes.
    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const std::string& key);
    /// @param key  NUL-terminated.
    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](const char* key);
    /// @param key  Must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const std::string& key) const;
    /// @param key  NUL-terminated; must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const char* key) const;
    /// @param key  NUL-terminated, in a buffer that may be written; otherwise as `const char*`.
    /// @return the member's value; a null value is inserted when the key is absent.
    Value& operator[](char* key) { return (*this)[static_cast<const char*>(key)]; }
    /// @param key  NUL-terminated, in a buffer that may be written; otherwise as `const char*`.
    /// @return the member's value.
    const Value& operator[](char* key) const { return (*this)[static_cast<const char*>(key)]; }

    /// @param key  Compared byte by byte.
    /// @return whether an ObjectVal has such a member.
    bool HasKey(const std::string& key) const;
    /// @param keys  Looked up in this order.
    /// @return as Object::HasKeys(), for an ObjectVal.
    int HasKeys(const std::vector<std::string>& keys) const;
    /// @param keys   NUL-terminated, looked up in this order.
    /// @param count  Number of keys; below 1 gives -1 at once.
    /// @return as Object::HasKeys(), for an ObjectVal.
    /// @throws std::logic_error when it meets a null pointer before an absent key.
    int HasKeys(const char** keys, int count) const;

    /// @return the number of members or elements.
    /// @note 1 for every other type, null included.
    int size() const noexcept;

    /// Makes this value null.
    /// @note The string, object and array are kept, inactive, until overwritten or destroyed.
    // Required: nothing else changes, so the old content stays inside.
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
/// @param left   Its type says which representations are compared.
/// @param right  As above.
/// @return whether they are equal.
TOLVEX_EXPORT bool operator==(const Value& left, const Value& right);
/// Compares elements in order, as values are compared.
///
/// @param left   Its elements are left operands.
/// @param right  Its elements are right operands.
/// @return whether the sizes are the same and the elements equal.
TOLVEX_EXPORT bool operator==(const Array& left, const Array& right);
/// Compares members in the order of their keys, as values are compared.
///
/// @param left   Its values are left operands.
/// @param right  Its values are right operands.
/// @return whether the sizes and keys are the same and the values equal.
TOLVEX_EXPORT bool operator==(const Object& left, const Object& right);

/// Writes a document as compact text, independent of the process's locale.
///
/// @note Strings and keys are written as they are, without escapes. Floating-point numbers have six
/// decimals; NaN and infinities are written as nan, -nan, inf and -inf, which do not read back.
/// @param value  An object or array.
/// @return the text; empty when the value is neither.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT std::string Serialize(const Value& value);
/// Writes any value, null included. Otherwise as Serialize().
///
/// @param value  Of any type.
/// @return the text.
TOLVEX_EXPORT std::string SerializeValue(const Value& value);
/// Writes an array. Otherwise as Serialize().
///
/// @param array  May be empty: "[]".
/// @return the text.
TOLVEX_EXPORT std::string SerializeArray(const Array& array);

/// Reads a document in time and memory linear in its length, independent of the process's locale.
///
/// docs/json-dialect.md says what is accepted and what changes on the way.
/// @param text  The whole document; any bytes.
/// @return an ObjectVal or ArrayVal, or a null value for text that is malformed or no document.
/// @throws std::out_of_range when a nested container is not closed, or when a `\u` escape is cut
///         off by the end of its string.
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
