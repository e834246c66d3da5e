/// @file
/// Walking, copying, comparing and taking apart JSON trees of any depth, without recursion. Not
/// installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"

namespace Tolvex::Json {

/// How far, in bytes, PrefetchNode() looks ahead: a few small objects.
constexpr std::ptrdiff_t nodesAhead = 4160;

/// Bytes of a node of a map: its links, then the member.
constexpr std::uintptr_t nodeLinks = 4 * sizeof(void*);
constexpr std::uintptr_t nodeBytes = nodeLinks + sizeof(std::string) + sizeof(Value);

/// Lets the processor fetch the node of a member at a distance from another, or an element.
///
/// A tree that was read from a text lies in memory nearly in the order of that text, but within an
/// object the nodes are visited in the order of their keys, which no processor foresees: waiting
/// for memory would be most of the time. A wrong guess costs little.
///
/// Inlined by force: g++ takes a function that does nothing else for one without effect, and drops
/// the calls.
[[gnu::always_inline]] inline void PrefetchNode(const void* member, std::ptrdiff_t distance)
{
    constexpr std::uintptr_t lineBytes = 64;
    const auto begin = reinterpret_cast<std::uintptr_t>(member) - nodeLinks +
                       static_cast<std::uintptr_t>(distance);
    for (std::uintptr_t offset = 0; offset < nodeBytes; offset += lineBytes) {
        __builtin_prefetch(reinterpret_cast<const void*>(begin + offset));
    }
}

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
    /// Of the current member; not for the elements of an array.
    const std::string& Key() const { return member->first; }

    void Advance()
    {
        if (overMembers) {
            ++member;
        } else {
            ++element;
        }
    }

    /// Lets the processor fetch what probably comes later. Not at the end. Inlined by force, see
    /// PrefetchNode().
    [[gnu::always_inline]] void Prefetch() const
    {
        if (overMembers) {
            PrefetchNode(&*member, nodesAhead);
        } else if (element->GetType() == ArrayVal) {
            PrefetchNode(Access::Elements(Access::ArrayOf(*element)).data(), nodesAhead);
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

/// Destroys everything inside a value, active or not. The value's own numbers and flag are lost.
/// Allocates nothing.
void ReleaseInside(Value& value) noexcept;

/// Looks for a value, by its address, inside a tree, the inactive parts included. Allocates
/// nothing; uses numbers in the tree meanwhile, which are as they were afterwards.
bool FindsInside(Value& tree, const Value& searched) noexcept;

}  // namespace Tolvex::Json
