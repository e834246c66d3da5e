// Assignments between a value and a place inside it. Copies, and moves from the place to the value,
// act as if the source had been copied first. Moving the value into the place is misuse: the value
// is lost.

#include <algorithm>
#include <functional>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Support/CountingNew.h"
#include "tests/Support/Pace.h"

namespace {

using namespace Tolvex::Json;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::allocationCount;
using Tolvex::Support::releaseCount;

/// Containers in a large document, each with a value in it.
const int many = std::max(1000, static_cast<int>(Tolvex::Support::Scaled(50000)));
constexpr const char* filler = "a text that is too long to be kept without an allocation";

std::size_t HeldAllocations()
{
    return allocationCount - releaseCount;
}

/// Many small containers.
Array MakeFiller(int count)
{
    Array array;
    for (int i = 0; i < count; ++i) {
        Object object;
        object["i"] = i;
        array.push_back(std::move(object));
    }
    return array;
}

/// A document, and a place in it.
struct Case
{
    std::string name;
    std::function<Value()> make;
    std::function<Value&(Value&)> place;
};

void PrintTo(const Case& self, std::ostream* stream)
{
    *stream << self.name;
}

class SelfAssignmentTest : public testing::TestWithParam<Case>
{
protected:
    /// What the assignment gives when its source is copied first.
    static Value Expected()
    {
        Value value = GetParam().make();
        const Value whole(value);
        GetParam().place(value) = whole;
        return value;
    }
};

/// Frees a value that was moved into a place inside itself and so owns itself.
void FreeLost(Value& place)
{
    const Value owner(std::move(place));
}

TEST_P(SelfAssignmentTest, MovingAValueIntoItselfLosesItAndFreesNothingTwice)
{
    const std::size_t held = HeldAllocations();
    {
        Value value = GetParam().make();
        const ValueType type = value.GetType();
        Value& place = GetParam().place(value);

        place = std::move(value);

        EXPECT_EQ(value.GetType(), type);
        EXPECT_EQ(value.size(), 0);
        FreeLost(place);
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST_P(SelfAssignmentTest, CopyingAValueIntoItselfGivesWhatACopyOfItGives)
{
    const std::size_t held = HeldAllocations();
    {
        Value value = GetParam().make();
        const Value& same = value;

        GetParam().place(value) = same;

        EXPECT_TRUE(value == Expected());
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST_P(SelfAssignmentTest, ValueMovedOutOfItselfReplacesTheRest)
{
    const std::size_t held = HeldAllocations();
    {
        Value value = GetParam().make();
        GetParam().place(value) = MakeFiller(3);

        value = std::move(GetParam().place(value));

        EXPECT_EQ(Serialize(value), R"([{"i":0},{"i":1},{"i":2}])");
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST_P(SelfAssignmentTest, PlaceTakesAnotherDocumentAndKeepsItsOwn)
{
    const std::size_t held = HeldAllocations();
    {
        Value value = GetParam().make();
        Value other(MakeFiller(many));
        const Value* const element = &other[0];

        GetParam().place(value) = std::move(other);

        EXPECT_EQ(&GetParam().place(value)[0], element) << "taken over, not copied";
    }
    EXPECT_EQ(HeldAllocations(), held);
}

Value& Last(Value& value)
{
    return value[value.size() - 1];
}

/// A case of a container, far inside a large document, and a place in it.
Case Inside(const std::string& name, const std::function<Value()>& makeContainer,
            const std::function<Value&(Value&)>& place)
{
    const auto make = [makeContainer] {
        Array array = MakeFiller(many);
        array.push_back(makeContainer());
        return Value(std::move(array));
    };
    return {name, make, [place](Value& value) -> Value& { return place(Last(value)); }};
}

/// The same for a container that was read.
Case Read(const std::string& name, const std::string& text,
          const std::function<Value&(Value&)>& place)
{
    const auto make = [text] {
        std::string document = "[";
        for (int i = 0; i < many; ++i) {
            document += R"({"i":[1]},)";
        }
        return Deserialize(document + text + "]");
    };
    return {name, make, [place](Value& value) -> Value& { return place(Last(value)); }};
}

Value& MemberZ(Value& value)
{
    return value["z"];
}

Value& MemberZByString(Value& value)
{
    return value[std::string("z")];
}

Object MakeObjectWithZ()
{
    Object object;
    object["z"] = 1;
    return object;
}

std::vector<Case> CasesOfMembers()
{
    return {Inside(
                "MemberAddedToAValue",
                [] {
                    Value value{Object()};
                    value["z"] = 1;
                    return value;
                },
                MemberZ),
            Inside(
                "MemberAddedToAValueByString",
                [] {
                    Value value{Object()};
                    value[std::string("z")] = 1;
                    return value;
                },
                MemberZByString),
            Inside(
                "MemberAddedToAnObject", [] { return Value(MakeObjectWithZ()); }, MemberZ),
            Inside(
                "MemberAddedToAnObjectByString",
                [] {
                    Object object;
                    object[std::string("z")] = 1;
                    return Value(std::move(object));
                },
                MemberZByString),
            Inside(
                "MemberOfACopiedObject",
                [] {
                    const Object object = MakeObjectWithZ();
                    return Value(object);
                },
                MemberZ),
            Inside(
                "MemberOfAnObjectThatMovedAbout",
                [] {
                    Object first = MakeObjectWithZ();
                    Object second(std::move(first));
                    Object third;
                    third = std::move(second);
                    Value value(std::move(third));
                    Value moved(std::move(value));
                    return moved;
                },
                MemberZ),
            Read("MemberRead", R"({"z":1})", MemberZ),
            Read("MemberReadTwice", R"({"z":[1],"z":1 2,"z":{"a":1}})", MemberZ)};
}

std::vector<Case> CasesOfElements()
{
    return {Inside(
                "ElementAppendedByCopy",
                [] {
                    Array array;
                    const Value element(1);
                    array.push_back(element);
                    return Value(std::move(array));
                },
                Last),
            Inside(
                "ElementAppendedByMove",
                [] {
                    Array array;
                    array.push_back(1);
                    return Value(std::move(array));
                },
                Last),
            Inside(
                "ElementInserted",
                [] {
                    Array array = MakeFiller(2);
                    array.insert(1, 1);
                    return Value(std::move(array));
                },
                [](Value& value) -> Value& { return value[1]; }),
            Inside(
                "ElementThatMadeRoom",
                [] {
                    Array array = MakeFiller(2);
                    array.insert(1, 1);
                    return Value(std::move(array));
                },
                Last),
            Inside(
                "ElementOfAnArrayThatGrew", [] { return Value(MakeFiller(100)); },
                [](Value& value) -> Value& { return value[0]; }),
            Inside(
                "ElementOfACopiedArray",
                [] {
                    const Array array = MakeFiller(2);
                    return Value(array);
                },
                Last),
            Inside(
                "ElementThatWasSwapped",
                [] {
                    Array array = MakeFiller(3);
                    std::reverse(array.begin(), array.end());
                    return Value(std::move(array));
                },
                Last),
            Read("NumberRead", "[1]", Last),
            Read("NumberReadByAllTheRules", "[1 2]", Last),
            Read("StringRead", R"(["a"])", Last),
            Read("StringReadByAllTheRules", R"(["a\u0041"])", Last),
            Read("ContainerRead", "[[1]]", Last)};
}

/// The innermost of as many arrays.
Case Bottom()
{
    const auto make = [] {
        return Deserialize(std::string(static_cast<std::size_t>(many), '[') + "1" +
                           std::string(static_cast<std::size_t>(many), ']'));
    };
    const auto place = [](Value& value) -> Value& {
        Value* at = &value;
        for (int i = 0; i < many; ++i) {
            at = &(*at)[0];
        }
        return *at;
    };
    return {"Bottom", make, place};
}

std::string NameOf(const testing::TestParamInfo<Case>& test)
{
    return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(Members, SelfAssignmentTest, testing::ValuesIn(CasesOfMembers()), NameOf);
INSTANTIATE_TEST_SUITE_P(Elements, SelfAssignmentTest, testing::ValuesIn(CasesOfElements()),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(Deep, SelfAssignmentTest, testing::Values(Bottom()), NameOf);

Value MakeObjectWithFiller()
{
    Object object;
    object["filler"] = MakeFiller(many);
    return Value(std::move(object));
}

TEST(MoveTest, PlaceInAnObjectThatBecamePartOfTheValueAfterwardsTakesTheValueAway)
{
    const std::size_t held = HeldAllocations();
    {
        Object object;
        object["filler"] = MakeFiller(many);
        Value& place = object["z"];
        Value value(std::move(object));

        place = std::move(value);

        EXPECT_EQ(value.size(), 0);
        FreeLost(place);
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST(MoveTest, PlaceInAnInactiveObjectOfTheValueTakesTheArray)
{
    const std::size_t held = HeldAllocations();
    {
        Value value = MakeObjectWithFiller();
        Value& place = value["z"];
        value = MakeFiller(many);

        place = std::move(value);

        EXPECT_EQ(value.size(), 0);
        EXPECT_EQ(place.size(), many);
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST(MoveTest, ValueMovedOntoItselfStaysAsItWas)
{
    Value value = MakeFiller(2);
    Value& same = value;

    value = std::move(same);

    EXPECT_EQ(value.size(), 2);
}

TEST(MoveTest, ArrayMovedToItsOwnEndBecomesItsOnlyElement)
{
    const std::size_t held = HeldAllocations();
    {
        Array array = MakeFiller(2);

        array.push_back(std::move(array));  // made a value, and empty, before anything is appended

        EXPECT_EQ(SerializeArray(array), R"([[{"i":0},{"i":1}]])");
    }
    EXPECT_EQ(HeldAllocations(), held);
}

TEST(MoveTest, ElementMovedToTheEndOfItsArrayLeavesAnEmptyOne)
{
    Array array;
    array.push_back(MakeFiller(1));

    for (int i = 0; i < 10; ++i) {
        array.push_back(std::move(array[array.size() - 1]));
    }

    EXPECT_EQ(SerializeArray(array), R"([[],[],[],[],[],[],[],[],[],[],[{"i":0}]])");
}

TEST(MoveTest, MoveIntoAnElementAllocatesNothingAndLeavesNumbersAsTheyWere)
{
    // Numbers that hold containers, inactive.
    const Value numbers[] = {Value(7), Value(1e10), Value(-0.1), Value::FromFloat(0.1F)};
    Array array;
    for (int i = 0; i < 4; ++i) {
        array.push_back(MakeFiller(2));
    }
    std::copy(std::begin(numbers), std::end(numbers), array.begin());
    Array target;
    target.push_back(filler);
    Value source(std::move(array));

    {
        const AllocationBudget none(0);
        target[0U] = std::move(source);
    }

    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(target[0U][i].GetType(), numbers[i].GetType());
        EXPECT_EQ(target[0U][i].ToInt(), numbers[i].ToInt());
        EXPECT_EQ(target[0U][i].ToFloat(), numbers[i].ToFloat());
        EXPECT_EQ(target[0U][i].ToDouble(), numbers[i].ToDouble());
        EXPECT_TRUE(Value(MakeFiller(2)) == target[0U][i]) << "the inactive array is to stay";
    }
}

TEST(MoveTest, ElementsCanBeSortedAndTurnedAround)
{
    Array array;
    for (const int size : {3, 1, 2, 0}) {
        array.push_back(MakeFiller(size));
    }

    std::sort(array.begin(), array.end(),
              [](const Value& left, const Value& right) { return left.size() < right.size(); });
    EXPECT_EQ(SerializeArray(array),
              R"([[],[{"i":0}],[{"i":0},{"i":1}],[{"i":0},{"i":1},{"i":2}]])");

    std::reverse(array.begin(), array.end());
    EXPECT_EQ(array[0U].size(), 3);
    EXPECT_EQ(array[3U].size(), 0);
}

}  // namespace
