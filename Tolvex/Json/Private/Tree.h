/// @file
/// Walking, copying and destroying JSON trees of any depth, without recursion.
#pragma once

#include <string>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"

namespace Tolvex::Json {

/// Steps through the values of one array or object, in order.
class Cursor
{
public:
    explicit Cursor(const Array& array)
        : element(Access::Elements(array).data()), pastElements(element + array.size())
    {
    }

    explicit Cursor(const Object& object)
        : member(object.begin()), pastMembers(object.end()), overMembers(true)
    {
    }

    bool AtEnd() const { return overMembers ? member == pastMembers : element == pastElements; }
    bool OverMembers() const { return overMembers; }
    const Value& Current() const { return overMembers ? member->second : *element; }
    /// The key of the current member; not for elements of an array.
    const std::string& Key() const { return member->first; }

    void Advance()
    {
        if (overMembers) {
            ++member;
        } else {
            ++element;
        }
    }

private:
    const Value* element = nullptr;
    const Value* pastElements = nullptr;
    Object::const_iterator member;
    Object::const_iterator pastMembers;
    bool overMembers = false;
};

/// Fills an empty array with deep copies.
void CopyInto(const Array& source, Array& target);
/// Fills an empty object with deep copies.
void CopyInto(const Object& source, Object& target);

/// Destroys all values inside a value, active or not, without an allocation. Overwrites the value's
/// own numbers and flag.
void ReleaseInside(Value& value) noexcept;

}  // namespace Tolvex::Json
