#include "Tolvex/Pipeline/IPipelineElement.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/Support/CountingNew.h"

namespace {

using Tolvex::Pipeline::IPipelineCbElement;
using Tolvex::Pipeline::IPipelineElement;
using Frame = std::shared_ptr<IPipelineCbElement>;
using Ring = Tolvex::Util::CircularBuffer<Frame>;

/// The smallest stage: stores its frames.
class Stage : public IPipelineElement
{
public:
    using IPipelineElement::IPipelineElement;

    bool Open() override { return true; }
    bool Process(const Frame& frame) override
    {
        AddNext(frame);
        return true;
    }
    void Close() override {}
};

template <typename T>
concept OffersReleaseCallback = requires(T& ring)
{
    ring.SetUnallocCallback(nullptr);
};

static_assert(OffersReleaseCallback<Ring> && !OffersReleaseCallback<Stage>);
static_assert(std::is_abstract_v<IPipelineElement>);
static_assert(std::has_virtual_destructor_v<IPipelineElement>);
static_assert(!std::is_copy_constructible_v<Stage>);
static_assert(std::is_convertible_v<int, Stage>);
static_assert(std::has_virtual_destructor_v<IPipelineCbElement>);
static_assert(!std::is_convertible_v<std::int64_t, IPipelineCbElement>);

Frame MakeFrame(std::int64_t id)
{
    return std::make_shared<IPipelineCbElement>(id);
}

void AddFrames(IPipelineElement& element, std::int64_t firstId, int count)
{
    for (int i = 0; i < count; ++i) {
        element.AddNext(MakeFrame(firstId + i));
    }
}

TEST(IPipelineCbElementTest, KeepsAnIdOf64Bits)
{
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();

    EXPECT_EQ(IPipelineCbElement(0).GetFrameId(), 0);
    EXPECT_EQ(IPipelineCbElement(-1).GetFrameId(), -1);
    EXPECT_EQ(IPipelineCbElement(5000000000).GetFrameId(), 5000000000);
    EXPECT_EQ(IPipelineCbElement(lowest).GetFrameId(), lowest);
}

TEST(IPipelineElementTest, ANewElementHoldsNoFrames)
{
    const Stage stage(3);

    EXPECT_EQ(stage.RetrieveCurrent(), nullptr);
    EXPECT_EQ(stage.GetElementAt(0), nullptr);
    EXPECT_EQ(stage.GetElementAt(4000000000U), nullptr);
    EXPECT_EQ(stage.GetCurrentFrameId(), -1);
    EXPECT_EQ(stage.GetRingPos(), 2);
    EXPECT_EQ(stage.GetRingSize(), 3);
    EXPECT_FALSE(stage.IsDataAvailable());
    EXPECT_EQ(stage.SeekBackKeyframe(1, 2), 0);
    EXPECT_EQ(stage.SeekRelative(2, 1), 0);
}

TEST(IPipelineElementTest, APartlyFilledRingAnswersAboutItsFrames)
{
    Stage stage(3);
    AddFrames(stage, 10, 2);

    EXPECT_TRUE(stage.IsDataAvailable());
    EXPECT_EQ(stage.GetRingPos(), 1);
    EXPECT_EQ(stage.GetCurrentFrameId(), 11);
    EXPECT_EQ(stage.RetrieveCurrent()->GetFrameId(), 11);
    ASSERT_NE(stage.GetElementAt(4), nullptr);
    EXPECT_EQ(stage.GetElementAt(4)->GetFrameId(), 11);
    EXPECT_EQ(stage.GetElementAt(2), nullptr);
    EXPECT_EQ(stage.SeekRelative(1, 2), 1);
    EXPECT_EQ(stage.SeekRelative(1, 3), 0);
}

TEST(IPipelineElementTest, SeeksAreThoseOfTheRing)
{
    Stage stage(10);
    AddFrames(stage, 0, 10);

    EXPECT_EQ(stage.SeekBackKeyframe(2, 4), 4);
    EXPECT_EQ(stage.SeekBackKeyframe(11, 4), 0);
    EXPECT_EQ(stage.SeekBackKeyframe(2, 0), 0);
    EXPECT_EQ(stage.SeekRelative(0, 1), 8);

    AddFrames(stage, 10, 2);
    EXPECT_EQ(stage.SeekBackKeyframe(2, 4), 8);
}

TEST(IPipelineElementTest, FramesPassThroughTheInterfaceOfTheStage)
{
    Stage stage(2);
    IPipelineElement& element = stage;

    ASSERT_TRUE(element.Open());
    EXPECT_TRUE(element.Process(MakeFrame(5)));
    element.Close();

    EXPECT_EQ(element.GetCurrentFrameId(), 5);
}

TEST(IPipelineElementTest, GetCurrentFrameIdReadsTheNewestSlotOnEveryLap)
{
    Stage stage(3);
    for (std::int64_t id = 100; id < 110; ++id) {
        stage.AddNext(MakeFrame(id));
        EXPECT_EQ(stage.GetCurrentFrameId(), id);
    }
}

TEST(IPipelineElementTest, GetCurrentFrameIdOfAnEmptyFrameIsMinusOne)
{
    Stage stage(3);
    AddFrames(stage, 10, 1);
    stage.AddNext(nullptr);

    EXPECT_TRUE(stage.IsDataAvailable());
    EXPECT_EQ(stage.GetCurrentFrameId(), -1);
}

TEST(IPipelineElementTest, TheOldestFrameIsDestroyedAtTheOverwriteAndNotLater)
{
    Stage stage(3);
    Frame frame = MakeFrame(10);
    const std::weak_ptr<IPipelineCbElement> watch = frame;
    stage.AddNext(frame);
    frame.reset();

    AddFrames(stage, 11, 2);
    EXPECT_FALSE(watch.expired());
    AddFrames(stage, 13, 1);
    EXPECT_TRUE(watch.expired());
}

/// Frame whose destructor records the content of its stage's newest slot.
class WatchingFrame : public IPipelineCbElement
{
public:
    WatchingFrame(const IPipelineElement& owner, std::int64_t& result)
        : IPipelineCbElement(10), stage(owner), newestId(result)
    {
    }
    ~WatchingFrame() override { newestId = stage.GetCurrentFrameId(); }
    WatchingFrame(const WatchingFrame&) = delete;
    WatchingFrame& operator=(const WatchingFrame&) = delete;

private:
    const IPipelineElement& stage;
    std::int64_t& newestId;
};

TEST(IPipelineElementTest, TheOldestFrameIsReleasedBeforeTheNewOneIsStored)
{
    Stage stage(1);
    std::int64_t newestId = 0;
    stage.AddNext(std::make_shared<WatchingFrame>(stage, newestId));

    AddFrames(stage, 11, 1);

    EXPECT_EQ(newestId, -1);
    EXPECT_EQ(stage.GetCurrentFrameId(), 11);
}

/// Frame whose destructor adds a last frame to its stage.
class LeavingFrame : public IPipelineCbElement
{
public:
    explicit LeavingFrame(IPipelineElement& owner) : IPipelineCbElement(10), stage(owner) {}
    ~LeavingFrame() override { stage.AddNext(MakeFrame(99)); }
    LeavingFrame(const LeavingFrame&) = delete;
    LeavingFrame& operator=(const LeavingFrame&) = delete;

private:
    IPipelineElement& stage;
};

TEST(IPipelineElementTest, AFrameMayAddAnotherWhileItIsReleased)
{
    Stage stage(2);
    stage.AddNext(std::make_shared<LeavingFrame>(stage));
    AddFrames(stage, 11, 1);

    AddFrames(stage, 12, 1);

    EXPECT_EQ(stage.GetCurrentFrameId(), 12);
    EXPECT_EQ(stage.GetElementAt(0)->GetFrameId(), 99);
    EXPECT_EQ(stage.GetRingPos(), 1);
}

TEST(IPipelineElementTest, AFrameThatSomebodyHoldsOutlivesItsSlot)
{
    Stage stage(1);
    AddFrames(stage, 10, 1);
    const Frame held = stage.RetrieveCurrent();

    AddFrames(stage, 11, 1);

    EXPECT_EQ(held->GetFrameId(), 10);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(IPipelineElementTest, DestructionDropsAllFrames)
{
    const Frame frame = MakeFrame(1);
    {
        std::unique_ptr<IPipelineElement> element = std::make_unique<Stage>(4);
        for (int i = 0; i < 6; ++i) {
            element->AddNext(frame);
        }
        EXPECT_EQ(frame.use_count(), 5);
    }

    EXPECT_EQ(frame.use_count(), 1);
}

TEST(IPipelineElementTest, UnallocCbElementResetsTheReference)
{
    Frame frame = MakeFrame(1);
    const std::weak_ptr<IPipelineCbElement> watch = frame;

    IPipelineElement::UnallocCbElement(frame);

    EXPECT_EQ(frame, nullptr);
    EXPECT_TRUE(watch.expired());
    IPipelineElement::UnallocCbElement(frame);
    EXPECT_EQ(frame, nullptr);
}

TEST(IPipelineElementTest, AddingAFrameAllocatesNothing)
{
    Stage stage(4);
    const Frame frame = MakeFrame(1);
    const std::size_t before = Tolvex::Support::allocationCount;

    for (int i = 0; i < 20; ++i) {
        stage.AddNext(frame);
        EXPECT_EQ(stage.GetCurrentFrameId(), 1);
    }

    EXPECT_EQ(Tolvex::Support::allocationCount, before);
}

TEST(IPipelineElementTest, ARingOfSizeZeroRaisesOutOfRangeWhenASlotIsTouched)
{
    Stage stage(0);

    EXPECT_THROW(stage.AddNext(MakeFrame(1)), std::out_of_range);
    EXPECT_THROW(stage.GetCurrentFrameId(), std::out_of_range);
    EXPECT_EQ(stage.RetrieveCurrent(), nullptr);
    EXPECT_EQ(stage.GetElementAt(3), nullptr);
    EXPECT_EQ(stage.GetRingPos(), -1);
    EXPECT_FALSE(stage.IsDataAvailable());
}

TEST(IPipelineElementTest, ImpossibleSizesRaiseTheAllocationErrorFromTheConstructor)
{
    EXPECT_THROW(Stage(-1), std::length_error);

    const Tolvex::Support::AllocationLimit limit(1000000);
    EXPECT_THROW(Stage(1000000), std::bad_alloc);
}

TEST(IPipelineElementTest, FramesStayAliveOnOtherThreadsWhileTheRingMovesOn)
{
    Stage stage(2);
    std::mutex stageMutex;  // the ring itself has no lock
    AddFrames(stage, 0, 1);
    constexpr int laps = 2000;

    std::int64_t seen = -1;
    std::thread reader([&] {
        for (int i = 0; i < laps; ++i) {
            Frame frame;
            {
                const std::lock_guard lock(stageMutex);
                frame = stage.RetrieveCurrent();
            }
            // Dropped at the end of the lap, possibly after the ring has dropped it.
            seen = frame != nullptr ? frame->GetFrameId() : -1;
        }
    });
    for (int i = 1; i < laps; ++i) {
        const Frame frame = MakeFrame(i);
        const std::lock_guard lock(stageMutex);
        stage.AddNext(frame);
    }
    reader.join();

    EXPECT_GE(seen, 0);
    EXPECT_EQ(stage.GetCurrentFrameId(), laps - 1);
}

}  // namespace
