#include "Tolvex/Json/Private/Tree.h"

#include <cstring>
#include <map>
#include <vector>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Prefetch.h"

namespace Tolvex::Json {

namespace {

/// A container being filled with copies, and how far its source has been copied.
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

    /// Adds a null value, to become the copy of the source's current one.
    Value& Add()
    {
        if (elements != nullptr) {
            return elements->emplace_back();
        }
        return members->try_emplace(members->end(), rest.Key())->second;
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

/// Values that hold others and are being destroyed, the innermost on top. The links are stored in
/// the values themselves, in place of their doubles, so nothing is allocated.
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
/// @return that one, or null if the array is empty now.
Value* PopFlatElements(std::vector<Value>& elements)
{
    while (!elements.empty()) {
        if (Access::HoldsValues(elements.back())) {
            return &elements.back();
        }
        elements.pop_back();
    }
    return nullptr;
}

/// Pushes the members that hold values. Once these are done, destroys all members.
void ReleaseMembersOf(Value& value, ReleaseStack& stack)
{
    std::map<std::string, Value>& members = Access::Members(Access::ObjectOf(value));
    bool& stacked = Access::Bool(value);
    if (!stacked) {
        stacked = true;
        for (auto& member : members) {
            if (Access::HoldsValues(PrefetchAhead(member, -1).second)) {
                stack.Push(member.second);
            }
        }
    }
    if (stack.Top() == &value) {
        members.clear();
    }
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

}  // namespace Tolvex::Json
