#include "Tolvex/Json/Private/Tree.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <vector>

#include "Tolvex/Json/Private/Access.h"

namespace Tolvex::Json {

namespace {

/// A container that is being filled with copies, and what of its source is still to be copied.
struct CopyFrame
{
    CopyFrame(const Array& source, Array& target)
        : rest(source), elements(&Access::Elements(target))
    {
        elements->reserve(source.size());  // no element moves while frames point into it
    }

    CopyFrame(const Object& source, Object& target)
        : rest(source), members(&Access::Members(target))
    {
    }

    /// Adds the value for the current one of the source, still null.
    Value& Add()
    {
        if (elements != nullptr) {
            return Access::PlaceInContainer(elements->emplace_back());
        }
        return Access::PlaceInContainer(members->try_emplace(members->end(), rest.Key())->second);
    }

    Cursor rest;
    std::vector<Value>* elements = nullptr;
    std::map<std::string, Value>* members = nullptr;
};

void CopyAll(CopyFrame current)
{
    std::vector<CopyFrame> suspended;
    for (;;) {
        if (current.rest.AtEnd()) {
            if (suspended.empty()) {
                return;
            }
            current = suspended.back();
            suspended.pop_back();
            continue;
        }

        const Value& source = current.rest.Current();
        Value& target = current.Add();
        current.rest.Advance();
        if (source.GetType() == ArrayVal) {
            Access::Type(target) = ArrayVal;
            suspended.push_back(current);
            current = CopyFrame(Access::ArrayOf(source), Access::ArrayOf(target));
        } else if (source.GetType() == ObjectVal) {
            Access::Type(target) = ObjectVal;
            suspended.push_back(current);
            current = CopyFrame(Access::ObjectOf(source), Access::ObjectOf(target));
        } else {
            target = source;
        }
    }
}

constexpr std::size_t linkBytes = sizeof(void*);

/// Values that hold others and are being taken apart, the innermost on top. The links stand in the
/// values themselves, in the place of their doubles, so that nothing is allocated.
class ReleaseStack
{
public:
    void Push(Value& value)
    {
        Value* const below = top;
        static_assert(linkBytes <= sizeof(double));
        std::memcpy(&Access::Double(value), &below, linkBytes);
        Access::Bool(value) = false;
        top = &value;
    }

    void Pop() { std::memcpy(&top, &Access::Double(*top), linkBytes); }
    Value* Top() const { return top; }

private:
    Value* top = nullptr;
};

/// Destroys elements from the back, up to one that holds values itself.
/// @return that one, or null when the array is empty now.
Value* PopFlatElements(std::vector<Value>& elements)
{
    while (!elements.empty()) {
        if (Access::HoldsValues(elements.back())) {
            PrefetchNode(Access::Elements(Access::ArrayOf(elements.back())).data(), -nodesAhead);
            return &elements.back();
        }
        elements.pop_back();
    }
    return nullptr;
}

/// Destroys the members once none of them holds values; before that, stacks those that do.
void ReleaseMembersOf(Value& value, ReleaseStack& stack)
{
    std::map<std::string, Value>& members = Access::Members(Access::ObjectOf(value));
    bool& stacked = Access::Bool(value);
    if (!stacked) {
        stacked = true;
        for (auto& member : members) {
            PrefetchNode(&member, -nodesAhead);
            if (Access::HoldsValues(member.second)) {
                stack.Push(member.second);
            }
        }
    }
    if (stack.Top() == &value) {
        members.clear();
    }
}

/// Whether an array holds the value as an element, decided by its address alone.
bool HasElementAt(const std::vector<Value>& elements, const Value* address)
{
    const std::less<const Value*> before;  // defined for unrelated addresses as well
    return !elements.empty() && !before(address, elements.data()) &&
           before(address, elements.data() + elements.size());
}

/// Values that are still to be searched. As in ReleaseStack, the links stand in the values; but
/// here in those numbers that follow from another, or mean nothing, and are made anew afterwards.
class SearchStack
{
public:
    void Push(Value& value)
    {
        SetLink(value, top);
        top = &value;
    }

    /// @return the value on top, whole again, or null.
    Value* Pop()
    {
        Value* const value = top;
        if (value != nullptr) {
            top = Link(*value);
            RestoreNumbers(*value);
        }
        return value;
    }

private:
    static constexpr std::size_t intBytes = std::min(linkBytes, sizeof(std::int32_t));
    static_assert(linkBytes <= sizeof(std::int32_t) + sizeof(float));

    static void SetLink(Value& value, Value* link)
    {
        std::array<char, linkBytes> bytes;
        std::memcpy(bytes.data(), &link, linkBytes);
        if (value.GetType() == DoubleVal) {
            std::memcpy(&Access::Int(value), bytes.data(), intBytes);
            std::memcpy(&Access::Float(value), bytes.data() + intBytes, linkBytes - intBytes);
        } else {
            std::memcpy(&Access::Double(value), bytes.data(), linkBytes);
        }
    }

    static Value* Link(Value& value)
    {
        std::array<char, linkBytes> bytes;
        if (value.GetType() == DoubleVal) {
            std::memcpy(bytes.data(), &Access::Int(value), intBytes);
            std::memcpy(bytes.data() + intBytes, &Access::Float(value), linkBytes - intBytes);
        } else {
            std::memcpy(bytes.data(), &Access::Double(value), linkBytes);
        }
        Value* link = nullptr;
        std::memcpy(&link, bytes.data(), linkBytes);
        return link;
    }

    static void RestoreNumbers(Value& value)
    {
        if (value.GetType() == DoubleVal) {
            Access::SetDouble(value, Access::Double(value));
        } else if (value.GetType() == IntVal) {
            Access::SetInt(value, Access::Int(value));
        } else if (value.GetType() == FloatVal) {
            Access::Double(value) = static_cast<double>(Access::Float(value));
        }
    }

    Value* top = nullptr;
};

/// Looks at what a value holds, and stacks what holds values itself.
/// @return whether the searched value is there.
bool SearchIn(Value& value, const Value* searched, SearchStack& stack)
{
    std::vector<Value>& elements = Access::Elements(Access::ArrayOf(value));
    if (HasElementAt(elements, searched)) {
        return true;
    }
    for (Value& element : elements) {
        if (Access::HoldsValues(element)) {
            stack.Push(element);
        }
    }
    for (auto& member : Access::Members(Access::ObjectOf(value))) {
        if (&member.second == searched) {
            return true;
        }
        PrefetchNode(&member, nodesAhead);
        if (Access::HoldsValues(member.second)) {
            stack.Push(member.second);
        }
    }
    return false;
}

}  // namespace

void CopyInto(const Array& source, Array& target)
{
    CopyAll(CopyFrame(source, target));
}

void CopyInto(const Object& source, Object& target)
{
    CopyAll(CopyFrame(source, target));
}

void ReleaseInside(Value& value) noexcept
{
    ReleaseStack stack;
    stack.Push(value);
    while (Value* const top = stack.Top()) {
        if (Value* const nested = PopFlatElements(Access::Elements(Access::ArrayOf(*top)))) {
            stack.Push(*nested);
        } else if (!Access::Members(Access::ObjectOf(*top)).empty()) {
            ReleaseMembersOf(*top, stack);
        } else {
            stack.Pop();
        }
    }
}

bool FindsInside(Value& tree, const Value& searched) noexcept
{
    SearchStack stack;
    stack.Push(tree);
    bool found = false;
    while (Value* const value = stack.Pop()) {
        found = found || SearchIn(*value, &searched, stack);  // all are popped, to be whole again
    }
    return found;
}

}  // namespace Tolvex::Json
