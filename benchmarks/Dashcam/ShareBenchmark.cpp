// How much of a processor does the camera need beside capture, encoding and clip writing? Hands
// over ready frames of 720p at 30 a second, samples at 50 a second and an event every five seconds,
// with the log and the watch, and prints the share of one processor in percent. The dispatcher and
// the display are left out.
//
// Are frames lost while a clip is written? Drives with the test picture, writes the clips of three
// events, and prints how many pictures never became frames.
//
// Ends with 1 if the share is above 1 %, or if a frame was lost.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sys/resource.h>
#include <thread>

#include "Tolvex/Interfaces/Stopped.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Log/Logger.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Capture.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/Watch.h"

namespace {

using Dashcam::Accelerometer;
using Dashcam::AvPacketOwner;
using Dashcam::Capture;
using Dashcam::Clips;
using Dashcam::Clock;
using Dashcam::Folder;
using Dashcam::Frame;
using Dashcam::Moment;
using Dashcam::Recorder;
using Dashcam::Settings;
using Dashcam::Watch;
using Tolvex::Interfaces::Stopped;

constexpr int seconds = 20;
constexpr int bytesOfFrame = 4000000 / 8 / 30;

double ProcessorSeconds()
{
    rusage used = {};
    getrusage(RUSAGE_SELF, &used);
    const auto toSeconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return toSeconds(used.ru_utime) + toSeconds(used.ru_stime);
}

/// Hands over one frame in each pass, as the capture does after the encoder.
class Source : public Tolvex::Interfaces::IThread
{
public:
    Source(Recorder& sink, const Settings& wishes) : recorder(sink), settings(wishes) {}

protected:
    void Run() override
    {
        std::this_thread::sleep_until(begin + id * std::chrono::microseconds(33333));
        AvPacketOwner packet(av_packet_alloc());
        av_new_packet(packet.get(), bytesOfFrame);
        packet->flags = id % settings.keyInterval == 0 ? AV_PKT_FLAG_KEY : 0;
        recorder.Process(std::make_shared<Frame>(id, std::move(packet), Clock::now(), nullptr));
        ++id;
    }

private:
    Recorder& recorder;
    const Settings& settings;
    const Moment begin = Clock::now();
    std::int64_t id = 0;
};

/// @return the share of one processor in percent.
double MeasureShare(const Settings& settings, Folder& folder)
{
    Recorder recorder(settings);
    Stopped<Watch> watch(folder);
    Stopped<Source> source(recorder, settings);
    Stopped<Accelerometer> accelerometer(settings, DASHCAM_SAMPLES);
    watch.Start();
    source.Start();
    accelerometer.Start();

    const double before = ProcessorSeconds();
    std::size_t frames = 0;
    for (int second = 0; second < seconds; second += 5) {
        const auto clip = recorder.Begin({"button", Clock::now(), std::time(nullptr), 0.0, 0.0});
        std::this_thread::sleep_for(std::chrono::seconds(5));
        Tolvex::Ilog::LogLine(Tolvex::Ilog::LogType::Notice, Tolvex::LogModule::Event) << "event";
        frames += clip->frames.size();
    }
    const double share = (ProcessorSeconds() - before) / seconds * 100.0;
    std::cout << frames << " frames in clips; " << share << " % of one processor" << std::endl;
    return share;
}

/// @return the frames that were lost while clips were written; -1 if no clip was.
std::int64_t CountLostFrames(const Settings& settings, Folder& folder)
{
    static Recorder recorder(settings);
    static const Accelerometer accelerometer(settings, DASHCAM_SAMPLES);
    static Clips& clips = *new Clips(settings, recorder, accelerometer, folder);
    Stopped<Capture> capture(settings, recorder, "", "");
    clips.Start();
    capture.Start();
    for (int event = 0; event < 3; ++event) {
        std::this_thread::sleep_for(std::chrono::seconds(settings.secondsAfter + 2));
        clips.Raise("button", 0.0);
    }
    std::this_thread::sleep_for(std::chrono::seconds(settings.secondsAfter + 2));
    clips.RunIgnitionOff();
    std::cout << capture.Lost() << " of " << capture.Frames() + capture.Lost()
              << " frames lost while " << clips.Counted().written << " clips were written"
              << std::endl;
    return clips.Counted().written == 3 ? static_cast<std::int64_t>(capture.Lost()) : -1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : "share-benchmark";
    std::filesystem::create_directories(path);
    static const Settings settings;  // the dispatcher uses both until the process ends
    static Folder folder(path, settings);
    Tolvex::Ilog::Logger::GetInstance()->EnableFile(folder.Path("dashcam.log"));
    const double share = MeasureShare(settings, folder);
    const std::int64_t lost = CountLostFrames(settings, folder);
    return share <= 1.0 && lost == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
