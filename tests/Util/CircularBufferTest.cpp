#include "Tolvex/Util/CircularBuffer.h"

#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/CountingNew.h"

namespace {

using Tolvex::Util::CircularBuffer;
using Number = std::shared_ptr<int>;

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

static_assert(std::has_virtual_destructor_v<CircularBuffer<int>>);
static_assert(!std::is_copy_constructible_v<CircularBuffer<int>>);
static_assert(!std::is_copy_assignable_v<CircularBuffer<int>>);

/// Adds first, first + 1, ...
void AddNumbers(CircularBuffer<int>& ring, int first, int count)
{
    for (int i = 0; i < count; ++i) {
        ring.AddNext(first + i);
    }
}

TEST(CircularBufferTest, NewRingHoldsNothing)
{
    const CircularBuffer<Number> ring(3);

    EXPECT_EQ(ring.RetrieveCurrent(), nullptr);
    EXPECT_EQ(ring.GetElementAt(0), nullptr);
    EXPECT_EQ(ring.GetElementAt(2), nullptr);
    EXPECT_EQ(ring.GetElementAt(4000000000U), nullptr);
    EXPECT_EQ(ring.GetNewestSlot(), nullptr);
    EXPECT_FALSE(ring.IsDataAvailable());
}

TEST(CircularBufferTest, RingCanBeInitialisedFromItsSizeWithAnEqualsSign)
{
    const CircularBuffer<int> ring = 3;

    EXPECT_EQ(ring.GetRingSize(), 3);
}

TEST(CircularBufferTest, NewRingKnowsItsSizeAndPointsAtItsLastSlot)
{
    EXPECT_EQ(CircularBuffer<int>(1).GetRingSize(), 1);
    EXPECT_EQ(CircularBuffer<int>(1).GetRingPos(), 0);
    EXPECT_EQ(CircularBuffer<int>(7).GetRingSize(), 7);
    EXPECT_EQ(CircularBuffer<int>(7).GetRingPos(), 6);
}

TEST(CircularBufferTest, SlotsAreValueInitialised)
{
    CircularBuffer<int> ring(3);
    ring.AddNext(5);

    EXPECT_EQ(ring.GetElementAt(1), 0);
    EXPECT_EQ(ring.GetElementAt(2), 0);
}

TEST(CircularBufferTest, EachElementGoesIntoTheNextSlotAndBecomesTheCurrent)
{
    CircularBuffer<int> ring(3);

    for (int i = 0; i < 10; ++i) {
        ring.AddNext(100 + i);

        EXPECT_TRUE(ring.IsDataAvailable());
        EXPECT_EQ(ring.GetRingPos(), i % 3);
        EXPECT_EQ(ring.RetrieveCurrent(), 100 + i);
        EXPECT_EQ(ring.GetNewestSlot(), 100 + i);
        EXPECT_EQ(ring.GetElementAt(static_cast<unsigned int>(i % 3)), 100 + i);
    }
    EXPECT_EQ(ring.GetRingSize(), 3);
}

TEST(CircularBufferTest, AFullRingHoldsTheLastElementsInTheirSlots)
{
    CircularBuffer<int> ring(4);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.GetElementAt(0), 8);
    EXPECT_EQ(ring.GetElementAt(1), 9);
    EXPECT_EQ(ring.GetElementAt(2), 6);
    EXPECT_EQ(ring.GetElementAt(3), 7);
}

TEST(CircularBufferTest, GetElementAtTakesTheUnsignedRemainderBySize)
{
    CircularBuffer<int> ring(7);
    AddNumbers(ring, 0, 7);

    EXPECT_EQ(ring.GetElementAt(6), 6);
    EXPECT_EQ(ring.GetElementAt(7), 0);
    EXPECT_EQ(ring.GetElementAt(13), 6);
    EXPECT_EQ(ring.GetElementAt(2147483648U), 2);  // 2^31 mod 7
    EXPECT_EQ(ring.GetElementAt(4294967295U), 3);  // what -1 becomes
}

TEST(CircularBufferTest, ARingOfOneSlotIsFullAfterOneElement)
{
    CircularBuffer<Number> ring(1);
    int released = 0;
    ring.SetUnallocCallback([&](Number&) { ++released; });

    ring.AddNext(std::make_shared<int>(1));
    EXPECT_EQ(released, 0);
    ring.AddNext(std::make_shared<int>(2));

    EXPECT_EQ(released, 1);
    EXPECT_EQ(ring.GetRingPos(), 0);
    EXPECT_EQ(*ring.RetrieveCurrent(), 2);
}

TEST(CircularBufferTest, ReadersGetReferencesOfTheirOwn)
{
    CircularBuffer<Number> ring(2);
    ring.AddNext(std::make_shared<int>(1));

    const Number current = ring.RetrieveCurrent();
    const Number slot = ring.GetElementAt(0);
    EXPECT_EQ(current.use_count(), 3);

    ring.AddNext(nullptr);
    ring.AddNext(nullptr);
    EXPECT_EQ(current.use_count(), 2);
    EXPECT_EQ(*slot, 1);
}

TEST(CircularBufferTest, HoldsElementsThatAreNoPointers)
{
    CircularBuffer<std::string> ring(2);
    EXPECT_EQ(ring.RetrieveCurrent(), "");

    ring.AddNext("one");
    ring.AddNext("two");
    ring.AddNext("three");

    EXPECT_EQ(ring.GetElementAt(0), "three");
    EXPECT_EQ(ring.GetElementAt(1), "two");
}

// ------------------------------------------------------------------------------ release callback

TEST(CircularBufferTest, TheFirstLapNeverCallsTheCallback)
{
    CircularBuffer<Number> ring(3);
    int calls = 0;
    ring.SetUnallocCallback([&](Number&) { ++calls; });

    for (int i = 0; i < 3; ++i) {
        ring.AddNext(std::make_shared<int>(i));
        EXPECT_EQ(calls, 0);
    }
    ring.AddNext(std::make_shared<int>(3));

    EXPECT_EQ(calls, 1);
}

TEST(CircularBufferTest, TheCallbackGetsTheOldestElementOnceForEveryOverwrite)
{
    CircularBuffer<int> ring(3);
    std::vector<int> released;
    ring.SetUnallocCallback([&](int& slot) { released.push_back(slot); });

    AddNumbers(ring, 10, 8);

    EXPECT_EQ(released, (std::vector<int>{10, 11, 12, 13, 14}));
}

TEST(CircularBufferTest, TheCallbackRunsBeforeTheNewElementIsStored)
{
    CircularBuffer<int> ring(2);
    std::vector<int> seen;
    ring.SetUnallocCallback([&](int& slot) {
        seen.push_back(slot);
        seen.push_back(ring.GetRingPos());
        seen.push_back(ring.RetrieveCurrent());
    });

    AddNumbers(ring, 10, 3);

    EXPECT_EQ(seen, (std::vector<int>{10, 1, 11}));
    EXPECT_EQ(ring.GetElementAt(0), 12);
}

TEST(CircularBufferTest, TheCallbackRunsBeforeTheRingTakesAReferenceToTheNewElement)
{
    CircularBuffer<Number> ring(1);
    ring.AddNext(std::make_shared<int>(1));
    const Number second = std::make_shared<int>(2);
    long referencesDuringTheCall = 0;
    ring.SetUnallocCallback([&](Number&) { referencesDuringTheCall = second.use_count(); });

    ring.AddNext(second);

    EXPECT_EQ(referencesDuringTheCall, 1);
    EXPECT_EQ(second.use_count(), 2);
}

TEST(CircularBufferTest, WhatTheCallbackWritesIntoTheSlotIsOverwritten)
{
    CircularBuffer<int> ring(2);
    ring.SetUnallocCallback([](int& slot) { slot = 99; });

    AddNumbers(ring, 10, 4);

    EXPECT_EQ(ring.GetElementAt(0), 12);
    EXPECT_EQ(ring.GetElementAt(1), 13);
}

TEST(CircularBufferTest, ALaterCallbackReplacesTheEarlier)
{
    CircularBuffer<int> ring(1);
    auto token = std::make_shared<int>(0);
    int first = 0;
    int second = 0;
    ring.SetUnallocCallback([&first, token](int&) { ++first; });
    AddNumbers(ring, 0, 2);
    ring.SetUnallocCallback([&](int&) { ++second; });
    AddNumbers(ring, 0, 2);

    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_EQ(token.use_count(), 1);
}

TEST(CircularBufferTest, ACallbackSetOnAFullRingIsUsedFromTheNextElementOn)
{
    CircularBuffer<int> ring(2);
    AddNumbers(ring, 0, 5);
    int calls = 0;
    ring.SetUnallocCallback([&](int&) { ++calls; });

    ring.AddNext(5);

    EXPECT_EQ(calls, 1);
}

TEST(CircularBufferTest, AnEmptyCallbackRaisesBadFunctionCallOnceTheRingIsFull)
{
    CircularBuffer<int> ring(2);
    ring.SetUnallocCallback(nullptr);
    AddNumbers(ring, 10, 2);

    EXPECT_THROW(ring.AddNext(12), std::bad_function_call);
    EXPECT_THROW(ring.AddNext(12), std::bad_function_call);

    EXPECT_EQ(ring.RetrieveCurrent(), 11);
    EXPECT_EQ(ring.GetElementAt(0), 10);
}

TEST(CircularBufferTest, AThrowingCallbackLeavesTheRingUsableAndStoresNothing)
{
    CircularBuffer<Number> ring(2);
    bool fail = true;
    ring.SetUnallocCallback([&](Number&) {
        if (fail) {
            throw std::runtime_error("busy");
        }
    });
    ring.AddNext(std::make_shared<int>(10));
    ring.AddNext(std::make_shared<int>(11));
    const Number refused = std::make_shared<int>(12);

    EXPECT_THROW(ring.AddNext(refused), std::runtime_error);
    EXPECT_EQ(refused.use_count(), 1);
    EXPECT_EQ(*ring.RetrieveCurrent(), 11);
    EXPECT_EQ(ring.GetRingPos(), 1);

    fail = false;
    ring.AddNext(refused);
    EXPECT_EQ(*ring.GetElementAt(0), 12);
    EXPECT_EQ(*ring.GetElementAt(1), 11);
}

// ------------------------------------------------------------------------------------- lifetimes

TEST(CircularBufferTest, WithoutCallbackTheOldestElementIsReleasedAtTheOverwrite)
{
    CircularBuffer<Number> ring(2);
    Number first = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = first;
    ring.AddNext(first);
    first.reset();

    ring.AddNext(nullptr);
    EXPECT_FALSE(watch.expired());
    ring.AddNext(nullptr);
    EXPECT_TRUE(watch.expired());
}

TEST(CircularBufferTest, TheDestructorReleasesElementsAndCallbackWithoutCallingIt)
{
    int calls = 0;
    const Number element = std::make_shared<int>(0);
    const Number captured = std::make_shared<int>(0);
    {
        CircularBuffer<Number> ring(2);
        ring.SetUnallocCallback([&calls, captured](Number&) { ++calls; });
        ring.AddNext(element);
        ring.AddNext(element);
        EXPECT_EQ(element.use_count(), 3);
    }

    EXPECT_EQ(calls, 0);
    EXPECT_EQ(element.use_count(), 1);
    EXPECT_EQ(captured.use_count(), 1);
}

TEST(CircularBufferTest, AnElementInsideTheSlotIsStoredAsTheCallbackLeavesIt)
{
    CircularBuffer<Number> ring(2);
    Number* oldestSlot = nullptr;
    ring.SetUnallocCallback([&](Number& slot) {
        oldestSlot = &slot;
        slot.reset();
    });
    for (int i = 0; i < 3; ++i) {
        ring.AddNext(std::make_shared<int>(i));
    }
    Number* const slotOfTwo = oldestSlot;
    ring.AddNext(std::make_shared<int>(3));

    ring.AddNext(*slotOfTwo);  // is in the slot that is overwritten now

    EXPECT_EQ(ring.RetrieveCurrent(), nullptr);
    EXPECT_EQ(ring.GetRingPos(), 0);
}

struct Node
{
    std::shared_ptr<Node> next{};
    int value = 0;
};

TEST(CircularBufferTest, AnElementOwnedByTheOneThatIsOverwrittenIsStored)
{
    CircularBuffer<std::shared_ptr<Node>> ring(1);
    auto oldest = std::make_shared<Node>();
    oldest->next = std::make_shared<Node>();
    oldest->next->value = 7;
    ring.AddNext(oldest);
    const std::shared_ptr<Node>& owned = oldest->next;
    oldest.reset();

    ring.AddNext(owned);

    ASSERT_NE(ring.RetrieveCurrent(), nullptr);
    EXPECT_EQ(ring.RetrieveCurrent()->value, 7);
}

TEST(CircularBufferTest, AnElementMayReadTheRingWhileItIsReleased)
{
    CircularBuffer<Number> ring(1);
    std::vector<int> seen;
    const auto readAndDelete = [&](int* number) {
        const Number current = ring.RetrieveCurrent();
        seen.push_back(current != nullptr ? *current : -1);
        delete number;
    };
    ring.AddNext(Number(new int(1), readAndDelete));

    ring.AddNext(std::make_shared<int>(2));

    EXPECT_EQ(seen, std::vector<int>{2});
}

TEST(CircularBufferTest, AddingAndReadingAllocateNothing)
{
    CircularBuffer<Number> ring(4);
    ring.SetUnallocCallback([](Number& slot) { slot.reset(); });
    const Number element = std::make_shared<int>(1);
    const std::size_t before = Tolvex::Support::allocationCount;

    for (int i = 0; i < 20; ++i) {
        ring.AddNext(element);
        EXPECT_EQ(ring.RetrieveCurrent(), ring.GetElementAt(static_cast<unsigned int>(i)));
    }

    EXPECT_EQ(Tolvex::Support::allocationCount, before);
}

TEST(CircularBufferTest, AllSlotsAreAllocatedByTheConstructor)
{
    const std::size_t before = Tolvex::Support::allocationCount;
    const CircularBuffer<Number> ring(1000);

    EXPECT_GT(Tolvex::Support::allocationCount, before);
}

// ------------------------------------------------------------------------------- impossible sizes

TEST(CircularBufferTest, ARingOfSizeZeroRaisesOutOfRangeWhenASlotIsTouched)
{
    CircularBuffer<Number> ring(0);

    EXPECT_THROW(ring.AddNext(nullptr), std::out_of_range);
    EXPECT_THROW(ring.AddNext(std::make_shared<int>(1)), std::out_of_range);
    EXPECT_THROW(ring.GetNewestSlot(), std::out_of_range);
    EXPECT_FALSE(ring.IsDataAvailable());
}

TEST(CircularBufferTest, ARingOfSizeZeroNeverHasDataAndDividesNothingByZero)
{
    const CircularBuffer<Number> ring(0);

    EXPECT_EQ(ring.RetrieveCurrent(), nullptr);
    EXPECT_EQ(ring.GetElementAt(0), nullptr);
    EXPECT_EQ(ring.GetElementAt(5), nullptr);
    EXPECT_EQ(ring.GetRingPos(), -1);
    EXPECT_EQ(ring.GetRingSize(), 0);
    EXPECT_EQ(ring.SeekBackKeyframe(0, 4), 0);
    EXPECT_EQ(ring.SeekRelative(0, 1), 0);
}

TEST(CircularBufferTest, ANegativeSizeRaisesTheAllocationErrorOfTheVector)
{
    EXPECT_THROW(CircularBuffer<Number>{-1}, std::length_error);
    EXPECT_THROW(CircularBuffer<Number>{lowest}, std::length_error);
}

TEST(CircularBufferTest, MoreSlotsThanMemoryHoldsRaiseBadAlloc)
{
    const Tolvex::Support::AllocationLimit limit(1000000);

    EXPECT_THROW(CircularBuffer<Number>{1000000}, std::bad_alloc);
}

// --------------------------------------------------------------------------------------- seeking

/// A ring of the given size after the given number of elements.
CircularBuffer<int>& Filled(CircularBuffer<int>& ring, int count)
{
    AddNumbers(ring, 0, count);
    return ring;
}

TEST(CircularBufferTest, SeekBackKeyframeIsZeroUntilTheRingHasWrappedThoughItHoldsFrames)
{
    CircularBuffer<int> ring(10);

    for (int added = 0; added < 10; ++added) {
        EXPECT_EQ(ring.SeekBackKeyframe(0, 1), 0);
        EXPECT_EQ(ring.SeekBackKeyframe(1, 2), 0);
        ring.AddNext(added);
    }
    EXPECT_EQ(ring.SeekBackKeyframe(0, 1), 9);
    EXPECT_EQ(ring.SeekBackKeyframe(1, 2), 6);
}

TEST(CircularBufferTest, SeekBackKeyframeIsZeroForMoreFramesBackThanSlots)
{
    CircularBuffer<int> ring(10);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.SeekBackKeyframe(10, 4), 8);
    EXPECT_EQ(ring.SeekBackKeyframe(11, 4), 0);
    EXPECT_EQ(ring.SeekBackKeyframe(highest, 4), 0);
}

TEST(CircularBufferTest, SeekBackKeyframeOfIntervalZeroIsZero)
{
    CircularBuffer<int> ring(10);
    EXPECT_EQ(ring.SeekBackKeyframe(2, 0), 0);

    AddNumbers(ring, 0, 15);
    EXPECT_EQ(ring.SeekBackKeyframe(2, 0), 0);
    EXPECT_EQ(ring.SeekBackKeyframe(-2, 0), 0);
}

TEST(CircularBufferTest, SeekBackKeyframeGoesBackFromTheLastKeyFrameBeforeTheNewestSlot)
{
    CircularBuffer<int> newestNine(10);
    CircularBuffer<int> newestOne(10);

    EXPECT_EQ(Filled(newestNine, 10).SeekBackKeyframe(2, 4), 4);  // 9 % 4 + 2 = 3, 9 - 3 = 6
    EXPECT_EQ(Filled(newestOne, 12).SeekBackKeyframe(2, 4), 8);   // 1 % 4 + 2 = 3, 10 - 2 = 8
}

TEST(CircularBufferTest, SeekBackKeyframeTakesNegativeArguments)
{
    CircularBuffer<int> ring(10);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.SeekBackKeyframe(-3, 4), 8);  // 9 % 4 - 3 = -2, 9 + 2 = 11
    EXPECT_EQ(ring.SeekBackKeyframe(2, -4), 4);  // 9 % -4 + 2 = 3, 6 / -4 = -1
    EXPECT_EQ(ring.SeekBackKeyframe(2, -1), 7);
}

TEST(CircularBufferTest, SeekBackKeyframeWrapsAroundForExtremeArguments)
{
    CircularBuffer<int> newestNine(10);
    AddNumbers(newestNine, 0, 10);
    CircularBuffer<int> newestZero(10);
    AddNumbers(newestZero, 0, 11);

    EXPECT_EQ(newestNine.SeekBackKeyframe(lowest, 1), -2147483639);  // 9 + 2^31
    EXPECT_EQ(newestNine.SeekBackKeyframe(lowest, 4), -2147483640);  // 9 - 1 + 2^31
    EXPECT_EQ(newestNine.SeekBackKeyframe(2, highest), 0);
    EXPECT_EQ(newestNine.SeekBackKeyframe(2, lowest), 0);
    EXPECT_EQ(newestZero.SeekBackKeyframe(lowest, -1), lowest);  // the quotient overflows an int
    EXPECT_EQ(newestZero.SeekBackKeyframe(lowest, lowest), lowest);
}

TEST(CircularBufferTest, SeekRelativeCountsBackFromTheGivenSlot)
{
    CircularBuffer<int> ring(10);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.SeekRelative(9, 0), 9);
    EXPECT_EQ(ring.SeekRelative(9, 4), 5);
    EXPECT_EQ(ring.SeekRelative(4, 4), 0);
    EXPECT_EQ(ring.SeekRelative(4, -3), 7);
}

TEST(CircularBufferTest, SeekRelativeAcrossSlotZeroLandsOneSlotFurtherBack)
{
    CircularBuffer<int> ring(10);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.SeekRelative(0, 1), 8);
    EXPECT_EQ(ring.SeekRelative(3, 5), 7);
    EXPECT_EQ(ring.SeekRelative(0, 10), -1);
}

TEST(CircularBufferTest, SeekRelativeIsZeroForMoreSlotsBackThanWereWritten)
{
    CircularBuffer<int> ring(3);
    AddNumbers(ring, 10, 2);

    EXPECT_EQ(ring.SeekRelative(1, 2), 1);  // 2 were written; across slot 0
    EXPECT_EQ(ring.SeekRelative(1, 3), 0);
    EXPECT_EQ(ring.SeekRelative(1, highest), 0);

    ring.AddNext(12);
    EXPECT_EQ(ring.SeekRelative(1, 3), 0);  // 2 - (3 - 1)
    EXPECT_EQ(ring.SeekRelative(1, 4), -1);
}

TEST(CircularBufferTest, SeekRelativeWrapsAroundForExtremeArguments)
{
    CircularBuffer<int> ring(10);
    AddNumbers(ring, 0, 10);

    EXPECT_EQ(ring.SeekRelative(highest, -1), lowest);
    EXPECT_EQ(ring.SeekRelative(highest, lowest), -1);
    EXPECT_EQ(ring.SeekRelative(lowest, 1), -2147483640);  // 9 - (2^31 + 1)
    EXPECT_EQ(ring.SeekRelative(lowest, highest), 10);     // 9 - (2^32 - 1)
    EXPECT_EQ(ring.SeekRelative(0, highest), -2147483638);
}

/// The expected answers of the ring, computed in another way.
struct Reference
{
    int size = 0;
    int written = 0;  ///< elements added since the ring was made

    bool Full() const { return written >= size; }
    int WritePosition() const { return written % size; }
    int Newest() const { return (written + size - 1) % size; }

    int SeekBackKeyframe(int back, int interval) const
    {
        if (!Full() || back > size || interval == 0) {
            return 0;
        }
        const int sinceKeyframe = Newest() - Newest() / interval * interval;
        int slot = Newest() - (sinceKeyframe + back);
        if (slot < 0) {
            slot += size;
        }
        return slot - slot % interval;
    }

    int SeekRelative(int from, int back) const
    {
        if (!Full() && back > WritePosition()) {
            return 0;
        }
        return back <= from ? from - back : size - back + from - 1;
    }
};

class CircularBufferSizeTest : public testing::TestWithParam<int>
{
};

TEST_P(CircularBufferSizeTest, SeekBackKeyframeAgreesWithTheReferenceInEveryState)
{
    CircularBuffer<int> ring(GetParam());
    for (Reference reference{GetParam()}; reference.written <= 3 * GetParam();
         ++reference.written) {
        for (int back = -3; back <= 15; ++back) {
            for (int interval = -3; interval <= 12; ++interval) {
                ASSERT_EQ(ring.SeekBackKeyframe(back, interval),
                          reference.SeekBackKeyframe(back, interval))
                    << "written " << reference.written << ", back " << back << ", interval "
                    << interval;
            }
        }
        ring.AddNext(0);
    }
}

TEST_P(CircularBufferSizeTest, SeekRelativeAgreesWithTheReferenceInEveryState)
{
    CircularBuffer<int> ring(GetParam());
    for (Reference reference{GetParam()}; reference.written <= 3 * GetParam();
         ++reference.written) {
        for (int from = -3; from <= 15; ++from) {
            for (int back = -3; back <= 15; ++back) {
                ASSERT_EQ(ring.SeekRelative(from, back), reference.SeekRelative(from, back))
                    << "written " << reference.written << ", from " << from << ", back " << back;
            }
        }
        ring.AddNext(0);
    }
}

TEST_P(CircularBufferSizeTest, PositionsAgreeWithTheReferenceInEveryState)
{
    CircularBuffer<int> ring(GetParam());
    for (Reference reference{GetParam()}; reference.written <= 3 * GetParam();
         ++reference.written) {
        EXPECT_EQ(ring.GetRingPos(), reference.Newest());
        EXPECT_EQ(ring.IsDataAvailable(), reference.written > 0);
        ring.AddNext(0);
    }
}

INSTANTIATE_TEST_SUITE_P(SizesOneToTwelve, CircularBufferSizeTest, testing::Range(1, 13));

}  // namespace
