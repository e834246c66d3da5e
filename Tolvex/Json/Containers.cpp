#include <algorithm>
#include <memory>
#include <utility>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

Array::Array(const Array& other)
{
    CopyInto(other, *this);
}

Array::Array(Array&& other) noexcept : elements(std::move(other.elements)) {}

Array& Array::operator=(const Array& other)
{
    if (this != &other) {
        Array copy(other);  // first, because other may be nested in this array
        elements.swap(copy.elements);
    }
    return *this;
}

Array& Array::operator=(Array&& other) noexcept
{
    if (this != &other) {
        Array taken(std::move(other));  // first, because other may be nested in this array
        elements.swap(taken.elements);
    }
    return *this;
}

void Array::push_back(const Value& value)
{
    elements.push_back(value);
}

void Array::push_back(Value&& value)
{
    elements.push_back(std::move(value));
}

void Array::insert(unsigned int index, const Value& value)
{
    push_back(value);
    if (index + 1 == size()) {
        return;
    }

    // Construct instead of assigning: an assignment would leave inactive representations behind.
    Value inserted(std::move(elements.back()));
    for (std::size_t to = elements.size() - 1; to > index; --to) {
        std::destroy_at(&elements[to]);
        std::construct_at(&elements[to], std::move(elements[to - 1]));
    }
    std::destroy_at(&elements[index]);
    std::construct_at(&elements[index], std::move(inserted));
}

void Array::Clear() noexcept
{
    ReleaseElements();
}

Array::iterator Array::find(const Value& value)
{
    // Compares `element == value`; equality is asymmetric.
    return std::find(begin(), end(), value);
}

Array::const_iterator Array::find(const Value& value) const
{
    return std::find(begin(), end(), value);
}

bool Array::HasValue(const Value& value) const
{
    return find(value) != end();
}

void Array::ReleaseElements() noexcept
{
    while (!elements.empty()) {
        if (Access::HoldsValues(elements.back())) {
            ReleaseInside(elements.back());
        }
        elements.pop_back();
    }
}

Object::Object(const Object& other)
{
    CopyInto(other, *this);
}

Object::Object(Object&& other) noexcept : members(std::move(other.members)) {}

Object& Object::operator=(const Object& other)
{
    if (this != &other) {
        Object copy(other);  // first, because other may be nested in this object
        members.swap(copy.members);
    }
    return *this;
}

Object& Object::operator=(Object&& other) noexcept
{
    if (this != &other) {
        Object taken(std::move(other));  // first, because other may be nested in this object
        members.swap(taken.members);
    }
    return *this;
}

Object::iterator Object::find(const std::string& key)
{
    return members.find(key);
}

Object::const_iterator Object::find(const std::string& key) const
{
    return members.find(key);
}

bool Object::HasKey(const std::string& key) const
{
    return members.find(key) != members.end();
}

int Object::HasKeys(const std::vector<std::string>& keys) const
{
    for (std::size_t i = 0; i < keys.size(); ++i) {
        if (!HasKey(keys[i])) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int Object::HasKeys(const char** keys, int count) const
{
    for (int i = 0; i < count; ++i) {
        if (!HasKey(keys[i])) {
            return i;
        }
    }
    return -1;
}

Value& Object::operator[](const std::string& key)
{
    return members[key];
}

Value& Object::operator[](const char* key)
{
    return members[key];
}

const Value& Object::operator[](const std::string& key) const
{
    return members.find(key)->second;
}

const Value& Object::operator[](const char* key) const
{
    return members.find(key)->second;
}

bool Object::RemoveKey(const std::string& key)
{
    return members.erase(key) != 0;
}

void Object::Clear() noexcept
{
    ReleaseMembers();
}

void Object::ReleaseMembers() noexcept
{
    for (auto& member : members) {
        if (Access::HoldsValues(member.second)) {
            ReleaseInside(member.second);
        }
    }
    members.clear();
}

}  // namespace Tolvex::Json
