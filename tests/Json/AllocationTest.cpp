#include <memory>
#include <new>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"

#include "tests/Support/CountingNew.h"

namespace {

using namespace Tolvex::Json;
using Tolvex::Support::allocatedBytes;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::allocationCount;
using Tolvex::Support::AllocationLimit;
using Tolvex::Support::releaseCount;

const char* const mixed =
    R"({"numbers":[1,2.5,-3e5,12345678901,0x1.8p3,1e-5],"text":"a \u0041\n long string of bytes",)"
    R"("a key that is longer than a string holds in itself":{"deep":[[[{"x":[true,null]}]]]},)"
    R"("broken":[.5],"list":["short","one with a [, in it","a long one to be put on the heap"]})";

/// Lets the work fail at every one of its allocations.
/// @return how many allocations it took to succeed.
template <typename Work>
std::size_t FailEverywhere(Work work)
{
    for (std::size_t budget = 0;; ++budget) {
        const std::size_t heldBefore = allocationCount - releaseCount;
        bool failed = false;
        try {
            const AllocationBudget limited(budget);
            work();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        EXPECT_EQ(allocationCount - releaseCount, heldBefore) << "leak at allocation " << budget;
        if (!failed) {
            return budget;
        }
    }
}

TEST(AllocationTest, ReadingFailsCleanlyAtEveryAllocation)
{
    const std::string text = mixed;
    const Value whole = Deserialize(text);
    ASSERT_EQ(whole.size(), 5);
    ASSERT_EQ(whole["numbers"].size(), 6);
    ASSERT_EQ(whole["list"].size(), 3);
    ASSERT_EQ(whole["broken"].GetType(), NullVal);

    EXPECT_GT(FailEverywhere([&] { (void)Deserialize(text); }), 15U);
    EXPECT_GT(FailEverywhere([&] {
                  ParseError error;
                  (void)Deserialize(text, error);
              }),
              15U);
}

TEST(AllocationTest, CopyingFailsCleanlyAtEveryAllocation)
{
    const Value value = Deserialize(mixed);

    EXPECT_GT(FailEverywhere([&] { const Value copy(value); }), 15U);
}

TEST(AllocationTest, AssignmentThatFailsLeavesTheDestinationAsItWas)
{
    const Value value = Deserialize(mixed);
    Value destination = Deserialize("[1]");
    for (std::size_t count = 0; count < 15; ++count) {
        bool failed = false;
        try {
            const AllocationBudget limited(count);
            destination = value;
        } catch (const std::bad_alloc&) {
            failed = true;
        }

        EXPECT_TRUE(failed);
        EXPECT_EQ(destination.GetType(), ArrayVal);
        EXPECT_EQ(destination.size(), 1);
    }
}

TEST(AllocationTest, WritingAndComparingFailCleanlyAtEveryAllocation)
{
    const Value value = Deserialize(mixed);
    const Value same(value);

    EXPECT_GT(FailEverywhere([&] { (void)Serialize(value); }), 0U);
    EXPECT_GT(FailEverywhere([&] { (void)SerializeStandard(value); }), 5U);
    EXPECT_GT(FailEverywhere([&] { (void)(value == same); }), 0U);
}

/// A document whose first value is nearly all of it.
Value MakeDocumentWithLongStringFirst()
{
    Array array;
    array.push_back(std::string(1000000, 'x'));
    for (int i = 0; i < 1000; ++i) {
        array.push_back(i);
    }
    return Value(std::move(array));
}

TEST(AllocationTest, WritingALongStringFirstTakesFewTimesItsLength)
{
    const Value value = MakeDocumentWithLongStringFirst();
    const std::size_t before = allocatedBytes;

    const std::string text = Serialize(value);

    EXPECT_LT(allocatedBytes - before, 6 * text.size());
}

TEST(AllocationTest, WritingSucceedsWhereOnlyTheTextItselfFindsRoom)
{
    const Value value = MakeDocumentWithLongStringFirst();
    const std::string expected = Serialize(value);
    const AllocationLimit limit(expected.size() + 1);

    EXPECT_EQ(Serialize(value), expected);
}

TEST(AllocationTest, ArrayThatCannotGrowStaysAsItWas)
{
    const Value element = Deserialize(mixed);
    const Array before =
        Deserialize(R"([1,"a text that is long enough for the heap",[2]])").ToArray();
    for (std::size_t count = 0; count < 15; ++count) {
        Array appended(before);
        Array inserted(before);
        {
            const AllocationBudget limited(count);
            EXPECT_THROW(appended.push_back(element), std::bad_alloc);
        }
        {
            const AllocationBudget limited(count);
            EXPECT_THROW(inserted.insert(1, element), std::bad_alloc);
        }

        EXPECT_TRUE(appended == before);
        EXPECT_TRUE(inserted == before);
    }
}

TEST(AllocationTest, ObjectThatCannotGrowStaysAsItWas)
{
    const std::string key = "a key that is longer than a string holds in itself";
    for (std::size_t count = 0; count < 2; ++count) {
        Object object;
        object["k"] = 1;
        {
            const AllocationBudget limited(count);
            EXPECT_THROW((void)object[key], std::bad_alloc);
        }

        EXPECT_EQ(object.size(), 1U);
        EXPECT_FALSE(object.HasKey(key));
    }
}

TEST(AllocationTest, DestroyingClearingAndMovingAllocateNothing)
{
    auto value = std::make_unique<Value>(Deserialize(mixed));
    Value target = Deserialize(mixed);
    Array array = Deserialize("[[[1,[2]]],{}]").ToArray();
    Object object = Deserialize(mixed).ToObject();
    const std::size_t before = allocationCount;

    {
        const AllocationBudget none(0);
        Value moved(std::move(*value));
        target = std::move(moved);
        value.reset();
        array.Clear();
        object.Clear();
        target.Clear();
        const Value gone(std::move(target));
    }

    EXPECT_EQ(allocationCount, before);
}

TEST(AllocationTest, ShortArraysAreAllocatedOnceAndExactly)
{
    const std::size_t before = allocatedBytes;

    const Value value = Deserialize("[1,2,3,4,5,6,7,8,9,10]");

    EXPECT_EQ(value.size(), 10);
    EXPECT_LT(allocatedBytes - before, 10 * sizeof(Value) + 1000);
}

TEST(AllocationTest, LongArraysNeverStandInMemoryTwice)
{
    std::string text = "[1";
    for (int i = 1; i < 100000; ++i) {
        text += ",1";
    }
    text += "]";
    const std::size_t before = allocatedBytes;

    const Value value = Deserialize(text);

    EXPECT_EQ(value.size(), 100000);
    EXPECT_LT(allocatedBytes - before, 100000 * sizeof(Value) / 100 * 110);
}

TEST(AllocationTest, NumbersInTheirUsualFormAllocateNothing)
{
    const auto allocationsFor = [](const std::string& number) {
        const std::string text = "[" + number + "," + number + "," + number + "]";
        const std::size_t before = allocationCount;
        const Value value = Deserialize(text);
        EXPECT_EQ(value.size(), 3) << number;
        return allocationCount - before;
    };
    const std::size_t expected = allocationsFor("1");

    for (const char* const number :
         {"-2147483648", "1.2345678901234567", "-0.12345678901234567", "12345678901234567e20",
          "1234567890123456e+100", "1234567890123456E-100", "1.7976931348623157e+300"}) {
        EXPECT_EQ(allocationsFor(number), expected) << number;
    }
}

TEST(AllocationTest, ObjectsOfManyContainersAreReadWithoutALargeBlock)
{
    std::string text = "{";
    for (int i = 0; i < 50000; ++i) {
        text += "\"" + std::to_string(i) + "\":[" + (i % 2 == 0 ? "" : "7") + "],";
    }
    text.back() = '}';
    const AllocationLimit limit(500000);

    const Value value = Deserialize(text);

    ASSERT_EQ(value.size(), 50000);
    EXPECT_EQ(value["49998"].size(), 0);
    EXPECT_EQ(value["49999"].size(), 1);
}

TEST(AllocationTest, ElementsThatAreNothingTakeLittleRoom)
{
    std::string text = "[1";
    for (int i = 1; i < 100000; ++i) {
        text += ",null";
    }
    text += "]";
    const std::size_t before = allocatedBytes;

    const Value value = Deserialize(text);

    EXPECT_EQ(value.size(), 1);
    EXPECT_LT(allocatedBytes - before, 2000 * sizeof(Value));
}

}  // namespace
