// The clips of the dashcam, and its workers, without memory and without threads.
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <vector>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Log/Logger.h"

#include "tests/Support/CountingNew.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"
#include "tests/Support/ScratchDirectory.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Capture.h"
#include "examples/dashcam/ClipFiles.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/Watch.h"

namespace {

std::atomic<bool> refuseThreads = false;  ///< no thread can be created while it is true
std::atomic<int> refusedThreads = 0;      ///< that were not created

}  // namespace

extern "C" int pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* argument)
{
    if (refuseThreads) {
        ++refusedThreads;
        return EAGAIN;
    }
    return Tolvex::Support::RealFunction<decltype(pthread_create)>("pthread_create")(
        handle, attributes, entry, argument);
}

namespace Dashcam {
namespace {

using namespace std::chrono_literals;
using Tolvex::Interfaces::Stopped;
using Tolvex::Support::AllocationBudget;
using Tolvex::Support::Eventually;

constexpr std::size_t mostAllocations = 1000;  ///< more than any step of the tests makes

/// A picture that was encoded, as a frame.
std::shared_ptr<Frame> MakeFrame(std::int64_t id)
{
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const AvCodecOwner encoder(avcodec_alloc_context3(codec));
    encoder->width = encoder->height = 64;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->color_range = AVCOL_RANGE_MPEG;
    encoder->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    encoder->time_base = {1, 1};
    encoder->thread_count = 1;
    Check(avcodec_open2(encoder.get(), codec, nullptr), "open");
    const AvPictureOwner picture(av_frame_alloc());
    picture->width = picture->height = 64;
    picture->format = AV_PIX_FMT_YUV420P;
    Check(av_frame_get_buffer(picture.get(), 0), "buffer");
    AvPacketOwner packet(av_packet_alloc());
    Check(avcodec_send_frame(encoder.get(), picture.get()), "send");
    Check(avcodec_receive_packet(encoder.get(), packet.get()), "receive");
    const std::shared_ptr<AVCodecParameters> parameters(avcodec_parameters_alloc(),
                                                        AvRelease<avcodec_parameters_free>());
    Check(avcodec_parameters_from_context(parameters.get(), encoder.get()), "parameters");
    return std::make_shared<Frame>(id, std::move(packet), Clock::now(), parameters);
}

/// A dispatcher and what it uses. Its threads use it until the process ends.
struct Parts
{
    explicit Parts(const std::string& path) : folder(path, settings) {}

    Settings settings;
    Recorder recorder{settings};
    Accelerometer sensor{settings, ""};
    Folder folder;
    Clips clips{settings, recorder, sensor, folder};
};

std::vector<Parts*>& kept = *new std::vector<Parts*>;  ///< never destroyed, but no leak

class OutOfResourcesTest : public ::testing::Test
{
protected:
    ~OutOfResourcesTest() override
    {
        refuseThreads = false;
        Tolvex::Ilog::Logger::GetInstance()->CloseBlackBox();
    }

    static int Sum(const Clips::Count& count)
    {
        return count.written + count.prolonged + count.lost;
    }

    /// @return how many files of the folder have an extension.
    std::size_t Files(const std::string& extension) const
    {
        std::size_t count = 0;
        for (const auto& file : std::filesystem::directory_iterator(directory.Path(""))) {
            count += file.path().extension() == extension ? 1U : 0U;
        }
        return count;
    }

    static std::string Log()
    {
        std::string lines;
        for (const std::string& line : Tolvex::Ilog::Logger::GetInstance()->GetLastLines()) {
            lines += line + '\n';
        }
        return lines;
    }

    const Tolvex::Support::ScratchDirectory directory;
    Parts& parts = *kept.emplace_back(new Parts(directory.Path("")));
    Settings& settings = parts.settings;
    Recorder& recorder = parts.recorder;
    Folder& folder = parts.folder;
    Clips& clips = parts.clips;
};

TEST_F(OutOfResourcesTest,
       EventsAreCountedAsUnfinishedUntilTheyAreWrittenLostOrProlongTheClipOfAnother)
{
    recorder.Process(MakeFrame(0));

    clips.Raise("button", 0.0);
    clips.Raise("button", 0.0);

    EXPECT_EQ(clips.Counted().Unfinished(), 2);
    recorder.Close();
    clips.Raise("button", 0.0);
    clips.FireSignal(nullptr);
    const Clips::Count count = clips.Counted();
    EXPECT_EQ(count.events, 3);
    EXPECT_EQ(count.written, 2);
    EXPECT_EQ(count.prolonged, 1);
    EXPECT_EQ(count.Unfinished(), 0);
    EXPECT_EQ(Files(".mp4"), 2U);
}

TEST_F(OutOfResourcesTest, EventBeginsItsClipBeforeAnyThreadOfTheDispatcherRuns)
{
    recorder.Process(MakeFrame(0));

    clips.Raise("button", 0.0);  // not started: no thread handles events

    EXPECT_EQ(recorder.Begin({"button", Clock::now(), 0, 0, 0}), nullptr);
}

TEST_F(OutOfResourcesTest, EventWhoseThreadCannotBeCreatedIsFinishedWithTheNextOne)
{
    recorder.Close();
    clips.Start();
    refuseThreads = true;
    clips.Raise("button", 0.0);
    ASSERT_TRUE(Eventually([] { return refusedThreads > 0; }));
    EXPECT_EQ(clips.Counted().Unfinished(), 1);

    refuseThreads = false;
    clips.Raise("button", 0.0);

    EXPECT_TRUE(Eventually([this] { return clips.Counted().Unfinished() == 0; }));
    EXPECT_EQ(clips.Counted().lost, 2);  // there was no picture
}

TEST_F(OutOfResourcesTest, EventsContinueAfterManyWhoseThreadsCouldNotBeCreated)
{
    recorder.Close();
    clips.Start();
    const int before = refusedThreads;
    refuseThreads = true;
    for (int i = 0; i < 20; ++i) {
        clips.Raise("button", 0.0);
    }
    ASSERT_TRUE(Eventually([&] { return refusedThreads >= before + 20; }));
    EXPECT_GT(clips.Counted().Unfinished(), 0);
    EXPECT_NE(std::string(clips.Counted().last).find("event lost"), std::string::npos);
    refuseThreads = false;

    clips.Raise("button", 0.0);
    ASSERT_TRUE(Eventually([this] { return clips.Counted().Unfinished() == 0; }));
    clips.Raise("button", 0.0);

    ASSERT_TRUE(Eventually([this] { return clips.Counted().Unfinished() == 0; }));
    EXPECT_EQ(std::string(clips.Counted().last), "clip lost: there was no picture");
    EXPECT_EQ(Sum(clips.Counted()), 22);
}

TEST_F(OutOfResourcesTest, IgnitionOffFinishesEventsThatHaveNoThread)
{
    recorder.Process(MakeFrame(0));
    refuseThreads = true;
    clips.Start();
    clips.Raise("button", 0.0);

    clips.RunIgnitionOff();

    EXPECT_EQ(clips.Counted().written, 1);
    EXPECT_TRUE(std::filesystem::exists(directory.Path("index.html")));
}

TEST_F(OutOfResourcesTest, EventsWithoutMemoryAreCountedAndEndNothing)
{
    recorder.Process(MakeFrame(0));
    recorder.Close();
    int events = 0;
    for (std::size_t good = 0; good < 30; ++good) {
        {
            const AllocationBudget budget(good);
            clips.Raise("acceleration", 1.0);
        }
        ++events;
        EXPECT_EQ(clips.Counted().events, events);
        clips.FireSignal(nullptr);
        EXPECT_EQ(Sum(clips.Counted()), events) << good;
    }
    EXPECT_GT(clips.Counted().lost, 0);
}

TEST_F(OutOfResourcesTest, EventThatIsRefusedWithoutMemoryIsLogged)
{
    ASSERT_TRUE(Tolvex::Ilog::Logger::GetInstance()->EnableBlackBox(100));
    clips.Start();
    {
        const AllocationBudget none(0);
        clips.Raise("button", 0.0);
    }
    ASSERT_EQ(clips.Counted().lost, 1);

    // The thread that was to log it may have had no memory either: the end of the drive logs it.
    clips.RunIgnitionOff();

    EXPECT_TRUE(Eventually([] { return Log().find("1 events lost") != std::string::npos; }));
}

TEST_F(OutOfResourcesTest, WatchThatIsStoppedLooksNoMore)
{
    Stopped<Watch> watch(folder);
    watch.Start();
    settings.folderMegabytes = 0;
    watch.RunIgnitionOff();
    std::ofstream(directory.Path("EVENT_FRONT_010120000000.mp4")) << "clip";

    ASSERT_TRUE(watch.WaitUntilFinished(60s));

    EXPECT_EQ(Files(".mp4"), 1U);
}

TEST_F(OutOfResourcesTest, ClipWithoutMemoryForAPartOfItIsWholeOrLost)
{
    recorder.Process(MakeFrame(0));
    clips.Raise("button", 0.0);
    recorder.Close();
    clips.FireSignal(nullptr);
    int events = 1;
    ASSERT_EQ(clips.Counted().written, events);
    for (std::size_t good = 0; clips.Counted().lost >= events / 2 && good < mostAllocations;
         ++good) {
        recorder.Begin({"button", Clock::now(), 0, 0.0, 0.0});
        clips.Raise("button", 0.0);
        const AllocationBudget budget(good);
        clips.FireSignal(nullptr);
        ++events;
        ASSERT_EQ(Sum(clips.Counted()), events) << good;
    }
    EXPECT_GT(clips.Counted().lost, 0);
    EXPECT_EQ(Files(".mp4"), static_cast<std::size_t>(clips.Counted().written));
    EXPECT_EQ(Files(".sig"), Files(".mp4"));
    EXPECT_EQ(Files(".jpg"), Files(".mp4"));
    EXPECT_EQ(Files(".json"), Files(".mp4"));
}

TEST_F(OutOfResourcesTest, ClipIsLostIfLibavHasNoMemory)
{
    using Frames = std::vector<std::shared_ptr<Frame>>;
    const Frames frames = {MakeFrame(0), MakeFrame(1)};
    av_log_set_level(AV_LOG_QUIET);
    int losses = 0;
    for (std::size_t most = 16; most < 100000; most += most / 8) {
        av_max_alloc(most);
        for (const auto& make : {+[](const Frames& all) { return MakeMp4(all); },
                                 +[](const Frames& all) { return MakeJpeg(*all[0]); }}) {
            try {
                EXPECT_NE(make(frames), "");
            } catch (const Tolvex::IException&) {
                ++losses;
            }
        }
    }
    EXPECT_GT(losses, 0);
    av_max_alloc(INT_MAX);
    EXPECT_NE(MakeMp4(frames), "");
    EXPECT_NE(MakeJpeg(*frames[0]), "");
}

TEST_F(OutOfResourcesTest, AccelerometerWithoutMemoryForAWhileContinues)
{
    const std::string path = directory.Path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    Stopped<Accelerometer> accelerometer(settings, path);
    std::fstream writer(path);
    const auto known = [&] { return accelerometer.Between(Moment(1ns), Moment::max()).size(); };
    accelerometer.Start();
    {
        const AllocationBudget none(0);
        const std::size_t before = Tolvex::Support::allocationCount;
        EXPECT_TRUE(Eventually([&] {
            writer << "a line that is too long for a text without an allocation\n" << std::flush;
            return Tolvex::Support::allocationCount >= before + 3;
        }));
    }

    writer << "0 0 32\n" << std::flush;

    EXPECT_TRUE(Eventually([&] { return known() > 0; }));
}

TEST_F(OutOfResourcesTest, CaptureWithoutMemoryForAnyStepOfAComplaintContinues)
{
    ASSERT_TRUE(Tolvex::Ilog::Logger::GetInstance()->EnableBlackBox(100));
    std::size_t steps = 0;  // that allocate, from the second time on
    for (const std::string file : {"/nowhere/1.mp4", "/nowhere/2.mp4"}) {
        Stopped<Capture> capture(settings, recorder, "", file);
        const std::size_t before = Tolvex::Support::allocationCount;
        capture.Start();
        const std::size_t own = Tolvex::Support::ownAllocationCount;
        ASSERT_TRUE(Eventually([&] { return Log().find(file) != std::string::npos; }));
        // Without those of the looks at the log.
        steps = Tolvex::Support::allocationCount - before;
        steps -= Tolvex::Support::ownAllocationCount - own;
    }
    ASSERT_GT(steps, 0U);

    // Two more: the capture may have been on its way when the line was seen.
    for (std::size_t good = 0; good < steps + 2; ++good) {
        Stopped<Capture> capture(settings, recorder, "", "/nowhere/3.mp4");
        const std::size_t before = Tolvex::Support::allocationCount;
        const AllocationBudget budget(good);
        try {
            capture.Start();
        } catch (const std::bad_alloc&) {
            continue;
        }
        EXPECT_TRUE(Eventually([&] { return Tolvex::Support::allocationCount > before + good; }));
    }
}

TEST_F(OutOfResourcesTest, WatchWithoutMemoryForAWhileContinues)
{
    Stopped<Watch> watch(folder);
    watch.Start();
    {
        const AllocationBudget none(0);
        const std::size_t before = Tolvex::Support::allocationCount;
        EXPECT_TRUE(Eventually([&] { return Tolvex::Support::allocationCount >= before + 2; }));
    }

    EXPECT_TRUE(watch.IsRunning());
    settings.folderMegabytes = 0;
    std::ofstream(directory.Path("EVENT_FRONT_010120000000.mp4")) << "clip";
    EXPECT_TRUE(Eventually([this] { return Files(".mp4") == 0; }));
}

TEST_F(OutOfResourcesTest, WatchNamesAWorkerWhoseThreadCouldNotBeCreated)
{
    ASSERT_TRUE(Tolvex::Ilog::Logger::GetInstance()->EnableBlackBox(100));
    refuseThreads = true;
    Stopped<Accelerometer> lazy(settings, "");
    lazy.Start();
    refuseThreads = false;
    Stopped<Watch> watch(folder);

    watch.Start();

    EXPECT_TRUE(Eventually([] {
        return Log().find("these workers do not work: Accelerometer (has no thread)") !=
               std::string::npos;
    }));
    lazy.Start();
    EXPECT_TRUE(
        Eventually([] { return Log().find("all workers work again") != std::string::npos; }));
}

}  // namespace
}  // namespace Dashcam
