#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

/// Two containers of the same kind and size, and how far they have been compared.
struct Pair
{
    Cursor left;
    Cursor right;
};

enum class Verdict
{
    Equal,
    Different,
    CompareArrays,
    CompareObjects
};

Verdict ToVerdict(bool equal)
{
    return equal ? Verdict::Equal : Verdict::Different;
}

bool EqualNumbers(const Value& left, const Value& right)
{
    const ValueType other = right.GetType();
    if (left.GetType() == IntVal) {
        return other == FloatVal ? static_cast<float>(Access::Int(left)) == Access::Float(right)
                                 : other == DoubleVal && Access::Int(left) == Access::Double(right);
    }
    if (left.GetType() == FloatVal) {
        return other == IntVal ? Access::Float(left) == static_cast<float>(Access::Int(right))
                               : other == DoubleVal && static_cast<double>(Access::Float(left)) ==
                                                           Access::Double(right);
    }
    return other == IntVal ? Access::Double(left) == Access::Int(right)
                           : other == FloatVal &&
                                 Access::Double(left) == static_cast<double>(Access::Float(right));
}

/// Compares the representations that belong to the left operand's type.
Verdict CompareByLeftType(const Value& left, const Value& right)
{
    switch (left.GetType()) {
        case NullVal:
            break;
        case StringVal:
            return ToVerdict(Access::String(left) == Access::String(right));
        case IntVal:
            return ToVerdict(Access::Int(left) == Access::Int(right));
        case FloatVal:
            return ToVerdict(Access::Float(left) == Access::Float(right));
        case DoubleVal:
            return ToVerdict(Access::Double(left) == Access::Double(right));
        case ObjectVal:
            return Verdict::CompareObjects;
        case ArrayVal:
            return Verdict::CompareArrays;
        case BoolVal:
            return ToVerdict(Access::Bool(left) == Access::Bool(right));
    }
    return Verdict::Equal;
}

/// Compares two values, without the content of their containers.
Verdict Compare(const Value& left, const Value& right)
{
    if (left.GetType() != right.GetType()) {
        if (left.IsNumeric()) {
            return ToVerdict(EqualNumbers(left, right));
        }
        if (!right.IsNumeric()) {
            return Verdict::Different;
        }
        // Required: the left operand's type decides how a number on the right is compared, even if
        // the left operand is null, a string, a container or a bool.
    }
    return CompareByLeftType(left, right);
}

/// Compares trees without recursion.
class Comparison
{
public:
    /// Compares two values; Finish() compares the content of containers.
    /// @return false if the values differ.
    bool Add(const Value& left, const Value& right)
    {
        const Verdict verdict = Compare(left, right);
        if (verdict == Verdict::CompareArrays) {
            return Add(Access::ArrayOf(left), Access::ArrayOf(right));
        }
        if (verdict == Verdict::CompareObjects) {
            return Add(Access::ObjectOf(left), Access::ObjectOf(right));
        }
        return verdict == Verdict::Equal;
    }

    template <typename Container>
    bool Add(const Container& left, const Container& right)
    {
        if (left.size() != right.size()) {
            return false;
        }
        if (left.size() != 0) {
            open.push_back({Cursor(left), Cursor(right)});
        }
        return true;
    }

    /// Compares the content of the added containers.
    bool Finish()
    {
        while (!open.empty()) {
            Pair& pair = open.back();
            if (pair.left.AtEnd()) {
                open.pop_back();
            } else if (!Step(pair)) {
                return false;
            }
        }
        return true;
    }

private:
    bool Step(Pair& pair)
    {
        if (pair.left.OverMembers() && pair.left.Key() != pair.right.Key()) {
            return false;
        }
        const Value& left = pair.left.Current();
        const Value& right = pair.right.Current();
        pair.left.Advance();
        pair.right.Advance();
        return Add(left, right);  // may invalidate pair
    }

    std::vector<Pair> open;
};

template <typename Operand>
bool AreEqual(const Operand& left, const Operand& right)
{
    Comparison comparison;
    return comparison.Add(left, right) && comparison.Finish();
}

}  // namespace

bool operator==(const Value& left, const Value& right)
{
    return AreEqual(left, right);
}

bool operator==(const Array& left, const Array& right)
{
    return AreEqual(left, right);
}

bool operator==(const Object& left, const Object& right)
{
    return AreEqual(left, right);
}

}  // namespace Tolvex::Json
