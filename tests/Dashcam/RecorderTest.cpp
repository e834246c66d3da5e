// The ring of the dashcam, with frames whose times the test chooses.
#include "examples/dashcam/Recorder.h"

#include <future>
#include <vector>

#include <gtest/gtest.h>

namespace Dashcam {
namespace {

using namespace std::chrono_literals;

constexpr int perSecond = 10;
constexpr int keyInterval = 5;
constexpr auto betweenFrames = 100ms;

Settings TestSettings()
{
    Settings settings;
    settings.framesPerSecond = perSecond;
    settings.keyInterval = keyInterval;
    settings.secondsBefore = 2;
    settings.secondsAfter = 1;
    settings.longestClip = 6;
    return settings;
}

class RecorderTest : public ::testing::Test
{
protected:
    /// Hands over so many frames; every fifth one is a key frame.
    void Record(int count)
    {
        for (int i = 0; i < count; ++i, ++nextId) {
            AvPacketOwner packet(av_packet_alloc());
            packet->flags = sinceKey == 0 ? AV_PKT_FLAG_KEY : 0;
            sinceKey = (sinceKey + 1) % keyInterval;
            recorder.Process(
                std::make_shared<Frame>(nextId, std::move(packet), TimeOf(nextId), nullptr));
        }
    }

    Moment TimeOf(std::int64_t id) const { return start + id * betweenFrames; }

    /// Begins a clip at the time of the newest frame.
    std::shared_ptr<Clip> Trigger()
    {
        return recorder.Begin({"button", TimeOf(nextId - 1), 0, 0, 0});
    }

    static void ExpectNoGap(const Clip& clip)
    {
        for (std::size_t i = 1; i < clip.frames.size(); ++i) {
            EXPECT_EQ(clip.frames[i]->GetFrameId(), clip.frames[i - 1]->GetFrameId() + 1);
        }
    }

    const Settings settings = TestSettings();
    Recorder recorder{settings};
    const Moment start = Clock::now();
    std::int64_t nextId = 0;
    int sinceKey = 0;
};

TEST_F(RecorderTest, ClipBeginsWithTheLastKeyFrameThatIsOldEnoughAtEveryPlaceInTheRing)
{
    Record(recorder.GetRingSize());
    for (int event = 0; event < 40; ++event) {
        const std::shared_ptr<Clip> clip = Trigger();
        const std::int64_t trigger = nextId - 1;
        Record(perSecond);
        ASSERT_TRUE(clip->complete);
        EXPECT_TRUE(clip->frames.front()->IsKey());
        EXPECT_GE(TimeOf(trigger) - clip->frames.front()->Time(), 2s);
        EXPECT_LT(TimeOf(trigger) - clip->frames.front()->Time(), 2s + keyInterval * betweenFrames);
        EXPECT_EQ(clip->frames.back()->Time(), TimeOf(trigger) + 1s);
        ExpectNoGap(*clip);
        Record(event % 7 + 1);
    }
}

TEST_F(RecorderTest, SecondEventProlongsTheOpenClip)
{
    Record(30);
    const std::shared_ptr<Clip> clip = Trigger();
    Record(5);

    EXPECT_EQ(Trigger(), nullptr);

    Record(9);
    EXPECT_FALSE(clip->complete);
    Record(1);
    EXPECT_TRUE(clip->complete);
    EXPECT_EQ(clip->events.size(), 2U);
    ExpectNoGap(*clip);
}

TEST_F(RecorderTest, ClipIsNotProlongedBeyondTheLongestButFollowedByAnother)
{
    Record(30);
    const std::shared_ptr<Clip> first = Trigger();
    std::shared_ptr<Clip> second;
    int events = 1;
    while (second == nullptr) {
        Record(8);
        second = Trigger();
        ++events;
    }

    EXPECT_TRUE(first->complete);
    EXPECT_LE(first->frames.back()->Time() - first->frames.front()->Time(), 6s + 500ms);
    EXPECT_EQ(second->events.size(), 1U);
    EXPECT_GE(second->events.front().time - second->frames.front()->Time(), 2s);
    EXPECT_EQ(first->events.size(), static_cast<std::size_t>(events - 1));
}

TEST_F(RecorderTest, KeyFramesAreFoundAfterTheSourceRestartsInTheMiddleOfAnInterval)
{
    Record(recorder.GetRingSize() + 3);
    sinceKey = 0;  // a new encoder begins with a key frame
    Record(recorder.GetRingSize());

    const std::shared_ptr<Clip> clip = Trigger();

    EXPECT_TRUE(clip->frames.front()->IsKey());
    EXPECT_GE(TimeOf(nextId - 1) - clip->frames.front()->Time(), 2s);
    ExpectNoGap(*clip);
}

TEST_F(RecorderTest, EventBeforeTheFirstFrameGetsTheFramesThatFollow)
{
    const std::shared_ptr<Clip> clip = recorder.Begin({"button", start, 0, 0, 0});
    Record(11);

    EXPECT_TRUE(clip->complete);
    EXPECT_EQ(clip->frames.size(), 11U);
    EXPECT_TRUE(clip->frames.front()->IsKey());
}

TEST_F(RecorderTest, ClipWithoutFurtherFramesIsCompleteAfterAWhile)
{
    Record(30);
    const std::shared_ptr<Clip> clip = recorder.Begin({"button", Clock::now() - 3s, 0, 0, 0});

    recorder.AwaitEnd(*clip);

    EXPECT_TRUE(clip->complete);
    EXPECT_FALSE(clip->frames.empty());
}

TEST_F(RecorderTest, CloseCompletesTheOpenClipAndTakesNoMoreFrames)
{
    Record(30);
    const std::shared_ptr<Clip> clip = Trigger();
    auto waiting = std::async(std::launch::async, [&] { recorder.AwaitEnd(*clip); });

    recorder.Close();

    ASSERT_EQ(waiting.wait_for(30s), std::future_status::ready);
    const std::size_t frames = clip->frames.size();
    Record(5);
    EXPECT_EQ(clip->frames.size(), frames);
    EXPECT_TRUE(Trigger()->complete);
}

}  // namespace
}  // namespace Dashcam
