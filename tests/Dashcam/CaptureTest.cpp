// The capture with a camera that the test plays: what it counts as lost, and what it says about
// failures. The functions of libav that read, encode and allocate are replaced.
#include "examples/dashcam/Capture.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/Stopped.h"

#include "tests/Support/LogFile.h"
#include "tests/Support/Patience.h"
#include "tests/Support/RealFunction.h"

namespace {

using namespace std::chrono_literals;

constexpr std::int64_t failure = -1;

/// What the camera does for one call.
struct Step
{
    std::chrono::milliseconds wait;
    std::int64_t stamp;  ///< in pictures; or failure
};

// Set by a test while no capture runs.
std::vector<Step> script;
std::atomic<std::size_t> position = 0;
int cameraRate = 0;
bool rateIsKnown = true;
const char* encoderName = "";  ///< "": none
std::atomic<int> encoderSearches = 0;
std::atomic<bool> failAllocation = false;
std::promise<void> scriptEnded;

}  // namespace

extern "C" {

int avfilter_graph_parse_ptr(AVFilterGraph* graph, const char* /*filters*/, AVFilterInOut** inputs,
                             AVFilterInOut** outputs, void* context)
{
    static auto* const real =
        Tolvex::Support::RealFunction<decltype(avfilter_graph_parse_ptr)>(__func__);
    const std::string camera =
        "testsrc2=size=64x64:rate=" + std::to_string(cameraRate) + ",format=yuv420p,buffersink@out";
    return real(graph, camera.c_str(), inputs, outputs, context);
}

int av_buffersink_get_frame(AVFilterContext* sink, AVFrame* picture)
{
    static auto* const real =
        Tolvex::Support::RealFunction<decltype(av_buffersink_get_frame)>(__func__);
    if (position == script.size()) {
        scriptEnded.set_value();
        ++position;
    }
    if (position > script.size()) {
        return AVERROR(EIO);
    }
    const Step step = script[position++];
    std::this_thread::sleep_for(step.wait);
    if (step.stamp == failure) {
        return AVERROR(EIO);
    }
    const int code = real(sink, picture);
    picture->pts = step.stamp;
    return code;
}

AVRational av_buffersink_get_frame_rate(const AVFilterContext* /*sink*/)
{
    return rateIsKnown ? AVRational{cameraRate, 1} : AVRational{1, 0};
}

const AVCodec* avcodec_find_encoder(AVCodecID /*id*/)
{
    ++encoderSearches;
    return avcodec_find_encoder_by_name(encoderName);
}

AVFrame* av_frame_alloc()
{
    static auto* const real = Tolvex::Support::RealFunction<decltype(av_frame_alloc)>(__func__);
    return failAllocation.exchange(false) ? nullptr : real();
}

}  // extern "C"

namespace Dashcam {
namespace {

using Tolvex::Support::Eventually;

/// Keeps the ids of its frames.
class Ids : public Recorder
{
public:
    using Recorder::Recorder;

    bool Process(const std::shared_ptr<Tolvex::Pipeline::IPipelineCbElement>& frame) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ids.push_back(frame->GetFrameId());
        return true;
    }

    std::vector<std::int64_t> Get() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return ids;
    }

private:
    mutable std::mutex mutex;
    std::vector<std::int64_t> ids;
};

Settings TestSettings()
{
    Settings settings;
    settings.framesPerSecond = 10;
    settings.height = 64;
    return settings;
}

class CaptureTest : public ::testing::Test
{
protected:
    CaptureTest()
    {
        position = 0;
        cameraRate = 10;
        rateIsKnown = true;
        encoderName = "libx264";
        scriptEnded = std::promise<void>();
    }

    /// Plays a script to its end.
    void Play(const std::vector<Step>& steps)
    {
        script = steps;
        capture.Start();
        ASSERT_EQ(scriptEnded.get_future().wait_for(60s), std::future_status::ready);
        capture.Stop();
    }

    /// @return how often the log has a text.
    int CountInLog(const std::string& text)
    {
        const std::vector<std::string> more = log.TakeLines();
        lines.insert(lines.end(), more.begin(), more.end());
        return static_cast<int>(std::count_if(
            lines.begin(), lines.end(),
            [&](const std::string& line) { return line.find(text) != std::string::npos; }));
    }

    Tolvex::Support::LogFile log;
    std::vector<std::string> lines;  ///< of the log
    const Settings settings = TestSettings();
    Ids recorder{settings};
    Tolvex::Interfaces::Stopped<Capture> capture{settings, recorder, "camera", ""};
};

using Numbers = std::vector<std::int64_t>;

TEST_F(CaptureTest, StepInTheCamerasStampsIsALoss)
{
    Play({{0ms, 0}, {100ms, 1}, {100ms, 2}, {300ms, 5}, {100ms, 6}});

    EXPECT_EQ(recorder.Get(), (Numbers{0, 1, 2, 5, 6}));
}

TEST_F(CaptureTest, CameraThatTakesLongForItsFirstPictureHasLostNone)
{
    Play({{1200ms, 7}, {100ms, 8}});

    EXPECT_EQ(recorder.Get(), (Numbers{0, 1}));
}

TEST_F(CaptureTest, GapOfMoreThanAThousandPicturesIsCounted)
{
    cameraRate = 2000;

    Play({{0ms, 0}, {1000ms, 2000}});

    EXPECT_EQ(recorder.Get(), (Numbers{0, 2000}));
}

TEST_F(CaptureTest, StampsThatJumpAreNoLoss)
{
    Play({{0ms, 0}, {0ms, 1}, {0ms, 100000}, {0ms, 100001}, {0ms, 5}});

    const Numbers ids = recorder.Get();
    ASSERT_EQ(ids.size(), 5U);
    EXPECT_LT(ids.back(), 1000);
}

TEST_F(CaptureTest, PicturesOfAnOutageAreLost)
{
    Play({{0ms, 0}, {100ms, 1}, {0ms, failure}, {500ms, 0}, {100ms, 1}});

    const Numbers ids = recorder.Get();
    ASSERT_EQ(ids.size(), 4U);
    EXPECT_GE(ids[2], 1 + 15);  // a second before the source is opened again, and half a second
    EXPECT_GE(capture.Lost(), 14U);
}

TEST_F(CaptureTest, PicturesOfAnOutageAreCountedAtTheRateOfTheCamera)
{
    cameraRate = 4 * settings.framesPerSecond;

    Play({{0ms, 0}, {0ms, failure}, {500ms, 0}});

    const Numbers ids = recorder.Get();
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_GE(ids[1], 60);  // those of a second and a half
}

TEST_F(CaptureTest, CameraWhoseRateIsNotKnownIsTakenToHaveTheRateOfTheSettings)
{
    rateIsKnown = false;

    Play({{0ms, 0}, {100ms, 1}, {300ms, 4}});

    EXPECT_EQ(recorder.Get(), (Numbers{0, 1, 4}));
}

TEST_F(CaptureTest, PicturesBeyondTheRateOfTheSettingsAreLeftOutAndNotLost)
{
    cameraRate = 4 * settings.framesPerSecond;
    std::vector<Step> steps;
    for (std::int64_t stamp = 0; stamp <= 40; ++stamp) {
        steps.push_back({0ms, stamp});
    }

    Play(steps);

    // The second picture may be early once.
    EXPECT_EQ(recorder.Get(), (Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
}

TEST_F(CaptureTest, LossOfAFastCameraIsCountedAmongPicturesThatAreLeftOut)
{
    cameraRate = 4 * settings.framesPerSecond;

    Play({{0ms, 0}, {0ms, 1}, {0ms, 2}, {0ms, 3}, {0ms, 4}, {0ms, 7}, {0ms, 8}});

    EXPECT_EQ(recorder.Get(), (Numbers{0, 1, 2, 5}));
}

TEST_F(CaptureTest, CameraThatIsALittleFasterThanTheSettingsLosesNoPicture)
{
    cameraRate = settings.framesPerSecond + 1;
    std::vector<Step> steps;
    for (std::int64_t stamp = 0; stamp <= 44; ++stamp) {
        steps.push_back({90ms, stamp});
    }

    Play(steps);

    const Numbers ids = recorder.Get();
    EXPECT_EQ(ids.size(), 42U);  // of four seconds at ten frames a second, and one that was early
    EXPECT_EQ(ids.back(), 41);
}

TEST_F(CaptureTest, PicturesForWhichTheLastPassWasTooLateAreLost)
{
    script = {{0ms, 0}, {2500ms, 1}};
    Tolvex::Interfaces::Stopped<Capture> file(settings, recorder, "", "");  // due at its own pace
    file.Start();
    ASSERT_TRUE(Eventually([] { return position == script.size(); }));  // in the last pass

    file.RunIgnitionOff();

    EXPECT_GE(file.Lost(), 14U);  // all but those of the tolerable second
}

TEST_F(CaptureTest, PicturesOfAnOutageThatDoesNotEndAreLost)
{
    script = {{0ms, 0}};
    const Moment start = Clock::now();

    capture.Start();

    EXPECT_TRUE(Eventually([this] { return capture.Lost() >= 20; }));
    EXPECT_GE(Clock::now() - start, 2s);
    EXPECT_EQ(recorder.Get(), Numbers{0});
}

TEST_F(CaptureTest, SourceThatOpensAndFailsIsLoggedOnce)
{
    Play({{0ms, failure}, {0ms, failure}, {0ms, failure}});

    EXPECT_EQ(CountInLog("no picture: camera: Input/output error"), 1);
    EXPECT_EQ(CountInLog("camera: 64x64"), 0);
    EXPECT_EQ(capture.Lost(), 0U);  // nothing is due before the first picture
}

TEST_F(CaptureTest, SourceThatFailsAgainAfterAPictureIsLoggedAgain)
{
    Play({{0ms, 0}, {0ms, failure}, {0ms, 0}});

    EXPECT_EQ(CountInLog("no picture: camera: Input/output error"), 2);
    EXPECT_EQ(CountInLog("camera: 64x64"), 2);
}

TEST_F(CaptureTest, MissingEncoderIsLogged)
{
    encoderName = "";
    const int before = encoderSearches;

    capture.Start();

    EXPECT_TRUE(Eventually([&] { return encoderSearches >= before + 2; }));
    capture.Stop();

    EXPECT_EQ(CountInLog("no picture: H.264 encoder: Encoder not found"), 1);
    EXPECT_EQ(capture.Frames(), 0U);
}

TEST_F(CaptureTest, EncoderWithoutTheOptionsOfX264IsUsed)
{
    encoderName = "ffv1";

    Play({{0ms, 0}, {100ms, 1}});

    EXPECT_EQ(capture.Frames(), 2U);
}

TEST_F(CaptureTest, PictureWithoutMemoryIsLoggedAndTheNextOneComes)
{
    failAllocation = true;

    Play({{0ms, 0}});

    EXPECT_EQ(CountInLog("Cannot allocate memory"), 1) << ::testing::PrintToString(lines);
    EXPECT_EQ(capture.Frames(), 1U);
}

}  // namespace
}  // namespace Dashcam
