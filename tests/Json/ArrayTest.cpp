#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

namespace {

using namespace Tolvex::Json;

Array MakeNumbers(int count)
{
    Array array;
    for (int i = 0; i < count; ++i) {
        array.push_back(i);
    }
    return array;
}

/// An array whose element is the number 7 and holds the string "old", inactive.
Array MakeStale()
{
    Array array;
    array.push_back("old");
    const Value number(7);
    array[0U] = number;
    return array;
}

TEST(ArrayTest, NewArrayIsEmpty)
{
    const Array array;

    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.begin(), array.end());
}

TEST(ArrayTest, ElementsKeepTheirOrder)
{
    const Array array = MakeNumbers(100);

    int expected = 0;
    for (const Value& element : array) {
        EXPECT_EQ(element.ToInt(), expected++);
    }
    EXPECT_EQ(expected, 100);
    EXPECT_EQ(array[99U].ToInt(), 99);
}

TEST(ArrayTest, CopiesAreDeep)
{
    Array array;
    array.push_back(MakeNumbers(2));

    Array copy(array);
    copy[0U][0] = "changed";
    Array assigned;
    assigned = array;
    assigned[0U][1] = "changed";

    EXPECT_EQ(SerializeArray(array), "[[0,1]]");
    EXPECT_EQ(SerializeArray(copy), R"([["changed",1]])");
    EXPECT_EQ(SerializeArray(assigned), R"([[0,"changed"]])");
}

TEST(ArrayTest, AssignmentToItselfChangesNothing)
{
    Array array = MakeNumbers(3);
    Array& same = array;

    array = same;
    array = std::move(same);

    EXPECT_EQ(SerializeArray(array), "[0,1,2]");
}

TEST(ArrayTest, ArrayCanBeAssignedFromInsideItself)
{
    Array array;
    array.push_back(MakeNumbers(3));

    array = array[0U].AsArray();

    EXPECT_EQ(SerializeArray(array), "[0,1,2]");
}

TEST(ArrayTest, MoveTakesTheElementsAndLeavesNone)
{
    Array array = MakeNumbers(3);
    const Value* const element = &array[0U];

    Array moved(std::move(array));
    Array assigned = MakeNumbers(1);
    assigned = std::move(moved);

    EXPECT_EQ(&assigned[0U], element);
    EXPECT_EQ(array.size(), 0U);  // NOLINT(bugprone-use-after-move): the header promises it
    EXPECT_EQ(moved.size(), 0U);  // NOLINT(bugprone-use-after-move)
}

TEST(ArrayTest, ElementsOfTheArrayItselfCanBeAppendedAndInserted)
{
    Array array;
    array.push_back("first");
    for (int i = 0; i < 20; ++i) {
        array.push_back(array[0U]);
        array.insert(0, array[array.size() - 1]);
    }

    EXPECT_EQ(array.size(), 41U);
    for (const Value& element : array) {
        EXPECT_EQ(element.ToString(), "first");
    }
}

TEST(ArrayTest, InsertPutsACopyBeforeThePosition)
{
    Array array = MakeNumbers(2);

    array.insert(0, "front");
    array.insert(2, "middle");
    array.insert(4, "back");

    EXPECT_EQ(SerializeArray(array), R"(["front",0,"middle",1,"back"])");
}

TEST(ArrayTest, InsertLeavesNothingInactiveInTheElementsItMoves)
{
    Array array;
    array.push_back(MakeNumbers(2));
    array.push_back(5);
    array.push_back(6);

    array.insert(0, 7);

    EXPECT_TRUE(Value(Array()) == array[0U]);
    EXPECT_TRUE(Value(Array()) == array[2U]);
    EXPECT_EQ(SerializeArray(array), "[7,[0,1],5,6]");
}

TEST(ArrayTest, GrowthLeavesElementsAsCopiesWithNothingInactive)
{
    Array array = MakeStale();
    ASSERT_FALSE(Value("") == array[0U]);

    for (int i = 0; i < 100; ++i) {
        array.push_back(i);
    }

    EXPECT_TRUE(Value("") == array[0U]);
    EXPECT_EQ(array[0U].ToInt(), 7);
}

TEST(ArrayTest, CopiedElementsHoldNothingInactive)
{
    const Array array = MakeStale();
    Array assigned = MakeStale();

    const Array copy(array);
    assigned = array;

    EXPECT_TRUE(Value("") == copy[0U]);
    EXPECT_TRUE(Value("") == assigned[0U]);
}

TEST(ArrayTest, ClearDestroysAllElements)
{
    Array array = MakeNumbers(3);

    array.Clear();
    array.Clear();

    EXPECT_EQ(array.size(), 0U);
}

TEST(ArrayTest, FindGivesTheFirstEqualElementOrTheEnd)
{
    Array array = MakeNumbers(3);
    array.push_back(1.0);

    EXPECT_EQ(array.find(1.0), array.begin() + 1);
    EXPECT_EQ(std::as_const(array).find(2), std::as_const(array).begin() + 2);
    EXPECT_EQ(std::as_const(array).find(9), std::as_const(array).end());
    EXPECT_EQ(array.find(9), array.end());
    EXPECT_TRUE(array.HasValue(2));
    EXPECT_FALSE(array.HasValue("2"));
}

TEST(ArrayTest, FindComparesWithTheElementOnTheLeft)
{
    Array nulls;
    nulls.push_back(Value());
    Array numbers = MakeNumbers(1);

    EXPECT_TRUE(nulls.HasValue(3)) << "null == 3";
    EXPECT_FALSE(numbers.HasValue(Value())) << "0 == null does not hold";
    EXPECT_EQ(nulls.find(3), nulls.begin());
    EXPECT_EQ(numbers.find(Value()), numbers.end());
}

}  // namespace
