/// @file
/// JSON documents: the tree in memory, writing it as text, reading it from text.
///
/// A Value is one value of any kind. An Array is a sequence of values. An Object maps keys to
/// values and iterates in ascending byte order of its keys. Serialize() and Deserialize() use a
/// dialect of JSON that differs from the standard in many places; docs/json-dialect.md lists them.
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

/// Says which representation of a Value is active.
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
/// No operation overflows the stack, however deep the nesting. Destroying, clearing and moving
/// allocate no memory.
/// @par Errors
/// Indices are not checked. An index out of range is undefined behaviour.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Array
{
public:
    /// Valid until an element is added, or all elements are replaced or destroyed.
    using iterator = std::vector<Value>::iterator;
    /// The same for read access.
    using const_iterator = std::vector<Value>::const_iterator;

    /// Makes an empty array.
    Array() noexcept;
    /// @param other  Copied deeply.
    Array(const Array& other);
    /// Takes constant time.
    /// @param other  Gives its elements away and is empty afterwards.
    Array(Array&& other) noexcept;
    /// Destroys all elements.
    ~Array();

    /// Replaces all elements by deep copies.
    ///
    /// @param other  May be nested in this array.
    /// @return this array.
    Array& operator=(const Array& other);
    /// Replaces all elements. Takes constant time, plus the time to destroy the old ones.
    ///
    /// @param other  Gives its elements away and is empty afterwards. May be nested in this array.
    /// @return this array.
    Array& operator=(Array&& other) noexcept;

    /// @param index  Below size(); not checked.
    /// @return a reference to the element.
    Value& operator[](unsigned int index);
    /// @param index  Below size(); not checked.
    /// @return a reference to the element.
    const Value& operator[](unsigned int index) const;

    /// @return the first element, or end() if the array is empty.
    iterator begin() noexcept;
    /// @return the position after the last element.
    iterator end() noexcept;
    /// @return the first element, or end() if the array is empty.
    const_iterator begin() const noexcept;
    /// @return the position after the last element.
    const_iterator end() const noexcept;

    /// @return the number of elements.
    unsigned int size() const noexcept;

    /// Appends a copy.
    ///
    /// @param value  May be an element of this array.
    void push_back(const Value& value);
    /// Appends the value itself, without a copy of what it holds.
    ///
    /// @param value  Moved from: see Value::Value(Value&&).
    void push_back(Value&& value);

    /// Inserts a copy.
    ///
    /// @param index  Position of the copy; size() appends. Must not exceed size(); not checked.
    /// @param value  May be an element of this array.
    void insert(unsigned int index, const Value& value);

    /// Destroys all elements.
    void Clear() noexcept;

    /// Finds the first element for which `element == value` holds.
    ///
    /// @param value  Right operand of the comparisons.
    /// @return the element, or end().
    /// @note Equality is asymmetric: `value == element` may give another result.
    iterator find(const Value& value);
    /// The same for read access.
    ///
    /// @param value  Right operand of the comparisons.
    /// @return the element, or end().
    const_iterator find(const Value& value) const;

    /// @param value  As for find().
    /// @return whether find() finds an element.
    bool HasValue(const Value& value) const;

private:
    friend struct Access;

    void ReleaseElements() noexcept;

    std::vector<Value> elements;
};

/// A map from keys to values that iterates in ascending byte order of the keys. Copies are deep.
///
/// No operation overflows the stack, however deep the nesting. Destroying, clearing and moving
/// allocate no memory.
/// @par Errors
/// Reading an absent key of a const object is undefined behaviour and not detected. A null pointer
/// for a key throws std::logic_error.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Object
{
public:
    /// Refers to a pair of key and value. Valid until that member is erased, or all are replaced.
    using iterator = std::map<std::string, Value>::iterator;
    /// The same for read access.
    using const_iterator = std::map<std::string, Value>::const_iterator;

    /// Makes an empty object.
    Object() noexcept;
    /// @param other  Copied deeply.
    Object(const Object& other);
    /// Takes constant time.
    /// @param other  Gives its members away and is empty afterwards.
    Object(Object&& other) noexcept;
    /// Destroys all members.
    ~Object();

    /// Replaces all members by deep copies.
    ///
    /// @param other  May be nested in this object.
    /// @return this object.
    Object& operator=(const Object& other);
    /// Replaces all members. Takes constant time, plus the time to destroy the old ones.
    ///
    /// @param other  Gives its members away and is empty afterwards. May be nested in this object.
    /// @return this object.
    Object& operator=(Object&& other) noexcept;

    /// @return the member with the lowest key, or end() if the object is empty.
    iterator begin() noexcept;
    /// @return the position after the last member.
    iterator end() noexcept;
    /// @return the member with the lowest key, or end() if the object is empty.
    const_iterator begin() const noexcept;
    /// @return the position after the last member.
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
    /// @return whether the object has such a member.
    bool HasKey(const std::string& key) const;

    /// @param keys  Looked up in this order.
    /// @return the index of the first absent key, or -1 if all keys are present.
    int HasKeys(const std::vector<std::string>& keys) const;
    /// @param keys   NUL-terminated, looked up in this order.
    /// @param count  Number of keys; below 1 gives -1 at once.
    /// @return the index of the first absent key, or -1 if all keys are present.
    /// @throws std::logic_error if a null pointer comes before the first absent key.
    int HasKeys(const char** keys, int count) const;

    /// @param key  Any bytes.
    /// @return the member's value. An absent key is added first, with a null value.
    Value& operator[](const std::string& key);
    /// @param key  NUL-terminated.
    /// @return the member's value. An absent key is added first, with a null value.
    Value& operator[](const char* key);
    /// @param key  Must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const std::string& key) const;
    /// @param key  NUL-terminated; must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const char* key) const;

    /// @param key  Compared byte by byte.
    /// @return true if a member was erased, false if the key was absent.
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
/// A value stores all representations side by side: an int, a float, a double, a string, an object,
/// an array and a bool. Its type says which of them is active. A number fills its int, float and
/// double together when it is made: ToInt() of 2.9 is 2. The int of a number out of range is the
/// nearest int; the int of NaN is 0.
/// @note A copy takes the type and the active representation of its source, nothing else. An
/// assignment leaves the other representations of its destination as they were. They are inactive,
/// but operator== reads them if the right operand is a number.
/// @par Errors
/// An operation that does not fit the type throws std::runtime_error with one of the texts
/// "json mValueType==IsNumeric() required", "json mValueType==BoolVal required",
/// "json mValueType==StringVal required", "json mValueType==ArrayVal required" and
/// "json mValueType==ObjectVal required", and leaves the value unchanged. Indices are not checked,
/// and neither are keys looked up in a const value.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT Value
{
public:
    /// Makes a NullVal.
    Value() noexcept;
    /// Makes an IntVal.
    /// @param number  The float and the double of the value are the nearest ones.
    Value(int number) noexcept;
    /// Makes a DoubleVal.
    /// @param number  Truncated toward zero for the integer; the float is the nearest one.
    Value(double number) noexcept;
    /// Makes a StringVal.
    /// @param text  Any bytes, NUL included.
    Value(const std::string& text);
    /// Makes a StringVal without a copy.
    /// @param text  Moved from.
    Value(std::string&& text) noexcept;
    /// Makes a StringVal.
    /// @param text  NUL-terminated; a null pointer makes an empty string.
    Value(const char* text);
    /// Makes an ObjectVal.
    /// @param object  Copied deeply.
    Value(const Object& object);
    /// Makes an ObjectVal, in constant time.
    /// @param object  Gives its members away and is empty afterwards.
    Value(Object&& object) noexcept;
    /// Makes an ArrayVal.
    /// @param array  Copied deeply.
    Value(const Array& array);
    /// Makes an ArrayVal, in constant time.
    /// @param array  Gives its elements away and is empty afterwards.
    Value(Array&& array) noexcept;
    /// Makes a BoolVal.
    /// @param flag  The value.
    Value(bool flag) noexcept;

    /// Makes a FloatVal. No constructor makes one.
    ///
    /// @param number  Truncated toward zero for the integer; widened for the double.
    /// @return the value.
    static Value FromFloat(float number) noexcept;

    /// Copies the type and the active representation, nothing else.
    /// @param other  Copied deeply.
    Value(const Value& other);
    /// Moves the type and the active representation, nothing else. Takes constant time.
    /// @param other  Keeps its type. Its active string, object or array is empty afterwards.
    Value(Value&& other) noexcept;
    /// Destroys all representations, active or not.
    ~Value() = default;

    /// Copies the source's type and active representation. If that throws, this value is unchanged.
    ///
    /// @param other  May be nested in this value, and this value may be nested in it.
    /// @return this value.
    Value& operator=(const Value& other);
    /// Moves the source's type and active representation. Takes constant time, plus the time to
    /// destroy what is replaced.
    ///
    /// @param other  Moved from: see Value(Value&&). May be nested in this value:
    ///               `v = std::move(v["k"])`.
    /// @return this value.
    /// @warning Do not move a value into something that it contains: `v["k"] = std::move(v)`. The
    /// value is lost, and its memory may leak. Copy instead: `v["k"] = Json::Value(v)`.
    Value& operator=(Value&& other) noexcept;

    /// @return which representation is active.
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
    /// @return a reference to the text of a StringVal, valid while this value holds it.
    const std::string& ToString() const;
    /// @return a deep copy of the array of an ArrayVal; AsArray() makes no copy.
    Array ToArray() const;
    /// @return a deep copy of the object of an ObjectVal; AsObject() makes no copy.
    Object ToObject() const;

    /// @return a reference to the array of an ArrayVal, valid while this value holds it.
    const Array& AsArray() const;
    /// @return a reference to the object of an ObjectVal, valid while this value holds it.
    const Object& AsObject() const;

    /// As ToInt().
    operator int() const;
    /// As ToFloat().
    operator float() const;
    /// As ToDouble().
    operator double() const;
    /// As ToBool().
    operator bool() const;
    /// As ToString(), but returns a copy.
    operator std::string() const;
    /// As ToArray().
    operator Array() const;
    /// As ToObject().
    operator Object() const;

    /// @param index  Below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    Value& operator[](unsigned int index);
    /// @param index  Below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    const Value& operator[](unsigned int index) const;
    /// @param index  At least 0 and below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    Value& operator[](int index);
    /// @param index  At least 0 and below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    const Value& operator[](int index) const;
    /// The same for all other integer types, for instance std::size_t.
    ///
    /// @param index  At least 0 and below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    template <std::integral Index>
    Value& operator[](Index index)
    {
        return (*this)[static_cast<unsigned int>(index)];
    }
    /// The same for all other integer types, for instance std::size_t.
    ///
    /// @param index  At least 0 and below size(); not checked.
    /// @return a reference to the element of an ArrayVal.
    template <std::integral Index>
    const Value& operator[](Index index) const
    {
        return (*this)[static_cast<unsigned int>(index)];
    }

    /// @param key  Any bytes.
    /// @return the member's value. An absent key is added first, with a null value.
    Value& operator[](const std::string& key);
    /// @param key  NUL-terminated.
    /// @return the member's value. An absent key is added first, with a null value.
    Value& operator[](const char* key);
    /// @param key  Must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const std::string& key) const;
    /// @param key  NUL-terminated; must be present: test with HasKey() first.
    /// @return the member's value.
    const Value& operator[](const char* key) const;
    /// The same for a key in a writable buffer.
    /// @param key  NUL-terminated.
    /// @return the member's value. An absent key is added first, with a null value.
    Value& operator[](char* key) { return (*this)[static_cast<const char*>(key)]; }
    /// The same for a key in a writable buffer.
    /// @param key  NUL-terminated.
    /// @return the member's value.
    const Value& operator[](char* key) const { return (*this)[static_cast<const char*>(key)]; }

    /// @param key  Compared byte by byte.
    /// @return whether the ObjectVal has such a member.
    bool HasKey(const std::string& key) const;
    /// @param keys  Looked up in this order.
    /// @return as Object::HasKeys(), for an ObjectVal.
    int HasKeys(const std::vector<std::string>& keys) const;
    /// @param keys   NUL-terminated, looked up in this order.
    /// @param count  Number of keys; below 1 gives -1 at once.
    /// @return as Object::HasKeys(), for an ObjectVal.
    /// @throws std::logic_error if a null pointer comes before the first absent key.
    int HasKeys(const char** keys, int count) const;

    /// @return the number of members or elements.
    /// @note The size is 1 for every other type, null included.
    int size() const noexcept;

    /// Makes this value null.
    /// @note The string, object and array keep their content, inactive, until an assignment
    /// overwrites them or the value is destroyed.
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

/// Compares two values exactly, without tolerance.
///
/// Two values of the same type compare their active representations. Two numbers of different types
/// compare their values.
/// @note Equality is asymmetric if only one operand is a number. A number on the left equals no
/// other type. If the number is on the right, the type of the left operand decides. Null equals
/// every number. A string, object, array or bool is compared with the number's inactive
/// representation of that type. That representation is empty or false, unless the number was
/// assigned to a value that held something else. So an empty string, object or array, or false, on
/// the left equals most numbers.
/// @param left   Its type decides which representations are compared.
/// @param right  The other value.
/// @return whether the values are equal.
TOLVEX_EXPORT bool operator==(const Value& left, const Value& right);
/// Compares the elements in order, with operator== of values.
///
/// @param left   Its elements are left operands.
/// @param right  Its elements are right operands.
/// @return whether sizes and elements are equal.
TOLVEX_EXPORT bool operator==(const Array& left, const Array& right);
/// Compares the members in the order of their keys: the keys byte by byte, the values with
/// operator== of values.
///
/// @param left   Its values are left operands.
/// @param right  Its values are right operands.
/// @return whether sizes, keys and values are equal.
TOLVEX_EXPORT bool operator==(const Object& left, const Object& right);

/// Writes a document as compact text. The locale of the process makes no difference.
///
/// @note Strings and keys are written as they are, without escapes. Floating-point numbers have six
/// decimals. NaN and infinities are written as nan, -nan, inf and -inf, which Deserialize()
/// refuses.
/// @param value  An object or array.
/// @return the text, or an empty one if the value is neither.
/// @par Thread safety
/// Reentrant.
TOLVEX_EXPORT std::string Serialize(const Value& value);
/// Writes a value of any type, null included. Otherwise as Serialize().
///
/// @param value  Of any type.
/// @return the text.
TOLVEX_EXPORT std::string SerializeValue(const Value& value);
/// Writes an array. Otherwise as Serialize().
///
/// @param array  May be empty: "[]".
/// @return the text.
TOLVEX_EXPORT std::string SerializeArray(const Array& array);

/// Reads a document. Time and memory are linear in its length. The locale of the process makes no
/// difference.
///
/// docs/json-dialect.md lists what the dialect accepts, and which values change when they are
/// written and read again.
/// @param text  The whole document; any bytes.
/// @return an ObjectVal or ArrayVal; a null value for a text without a document, and for one whose
///         outermost object or array is malformed. A malformed nested one is null, or missing in
///         the array around it.
/// @throws std::out_of_range if a nested container is not closed, or if a string ends within a
///         `\u` escape.
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

// Defaulted here, not in the class: there it would let `Value()` clear all bytes first.
inline Value::Value() noexcept = default;

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
