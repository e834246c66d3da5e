// How much of a processor does the camera need beside capture, encoding and clip writing? Hands
// over ready frames of 720p at 30 a second, reads samples at 50 a second, raises an event every
// five seconds, and shows the line of the display five times a second, with the dispatcher, the log
// and the watch. Prints the share of one processor in percent. The frames have no format, so that
// each clip passes the dispatcher and is refused where its file would begin. The display is a part
// of main.cpp: here the same calls make its line, which goes to /dev/null.
//
// Are frames lost while a clip is written? Drives with the test picture, writes the clips of three
// events, and prints how many pictures never became frames. How long does ignition off take then?
//
// usage: Dashcam.ShareBenchmark [FOLDER [SECONDS]]
// Ends with 1 if the share is above 1 %, or if a frame was lost. With SECONDS it is only a trial:
// it hands over frames for so long, writes one small clip, and judges no figure.
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <sys/resource.h>
#include <thread>

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Capture.h"
#include "examples/dashcam/Clips.h"
#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/Watch.h"

namespace {

using namespace std::chrono_literals;
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
using Tolvex::Util::TemperatureMonitor;

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

    std::int64_t Frames() const { return frames; }

protected:
    void Run() override
    {
        const std::int64_t id = frames;
        std::this_thread::sleep_until(begin + id * std::chrono::microseconds(33333));
        AvPacketOwner packet(av_packet_alloc());
        av_new_packet(packet.get(), bytesOfFrame);
        packet->flags = id % settings.keyInterval == 0 ? AV_PKT_FLAG_KEY : 0;
        recorder.Process(std::make_shared<Frame>(id, std::move(packet), Clock::now(), noFormat));
        ++frames;
    }

private:
    Recorder& recorder;
    const Settings& settings;
    const Moment begin = Clock::now();
    const std::shared_ptr<AVCodecParameters> noFormat{
        avcodec_parameters_alloc(), Dashcam::AvRelease<avcodec_parameters_free>()};
    std::atomic<std::int64_t> frames = 0;
};

/// All of the camera but its source. Never destroyed, as in main.cpp.
struct Camera
{
    Camera(const Settings& settings, Folder& folder)
        : recorder(settings),
          accelerometer(settings, DASHCAM_SAMPLES),
          clips(settings, recorder, accelerometer, folder),
          watch(folder)
    {
        TemperatureMonitor::Start();
        clips.Start();
        accelerometer.Start();
        watch.Start();
    }

    Recorder recorder;
    Accelerometer accelerometer;
    Clips clips;
    Watch watch;
};

/// Shows how the drive is going, with the calls that main.cpp makes.
void UpdateDisplay(std::ostream& terminal, std::int64_t frames, const Camera& camera)
{
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    poll(&output, 1, 0);
    const Clips::Count count = camera.clips.Counted();
    std::ostringstream line;
    line << Tolvex::Util::NewDate("%H:%M:%S") << "  " << frames << " frames  ring "
         << camera.recorder.Fill() << " %  ";
    if (TemperatureMonitor::GetInstance()->GetTemperatureAvailable()) {
        line << TemperatureMonitor::GetInstance()->GetTemperature() << " C  ";
    }
    line << count.last;
    terminal << "\r\033[?7l" << line.str() << "\033[K\033[?7h" << std::flush;
}

/// @return the share of one processor in percent; 100 if the dispatcher has refused no clip.
double MeasureShare(const Settings& settings, Folder& folder, int seconds)
{
    static Camera& camera = *new Camera(settings, folder);
    Stopped<Source> source(camera.recorder, settings);
    std::ofstream terminal("/dev/null");
    camera.accelerometer.AddCallback(&camera.clips);
    source.Start();

    const Moment begin = Clock::now();
    const double before = ProcessorSeconds();
    for (int update = 0; update < 5 * seconds; ++update) {
        if (update % 25 == 0) {
            camera.clips.Raise("button", 0.0);
        }
        UpdateDisplay(terminal, source.Frames(), camera);
        std::this_thread::sleep_until(begin + update * 200ms + 200ms);
    }
    const double share = (ProcessorSeconds() - before) / seconds * 100.0;

    camera.clips.RunIgnitionOff();
    camera.accelerometer.RunIgnitionOff();
    camera.watch.RunIgnitionOff();
    const Clips::Count count = camera.clips.Counted();
    std::cout << source.Frames() << " frames, " << count.events << " events, " << count.lost
              << " clips refused: " << share << " % of one processor" << std::endl;
    return count.lost > 0 && count.written == 0 ? share : 100.0;
}

/// @return the frames that were lost while clips were written; -1 if a clip was not written.
std::int64_t CountLostFrames(const Settings& settings, Folder& folder, int events)
{
    static Camera& camera = *new Camera(settings, folder);
    Stopped<Capture> capture(settings, camera.recorder, "", "");
    capture.Start();
    for (int event = 0; event < events; ++event) {
        std::this_thread::sleep_for(std::chrono::seconds(settings.secondsAfter + 2));
        camera.clips.Raise("button", 0.0);
    }
    std::this_thread::sleep_for(std::chrono::seconds(settings.secondsAfter + 2));

    const Moment begin = Clock::now();
    capture.RunIgnitionOff();
    camera.clips.RunIgnitionOff();
    camera.accelerometer.RunIgnitionOff();
    camera.watch.RunIgnitionOff();
    Tolvex::Ilog::Logger::GetInstance()->RunIgnitionOff();
    const auto end = (Clock::now() - begin) / 1ms;
    const Clips::Count count = camera.clips.Counted();
    std::cout << capture.Lost() << " of " << capture.Frames() + capture.Lost()
              << " frames lost while " << count.written << " clips were written\nignition off took "
              << end << " ms" << std::endl;
    return count.written == events ? static_cast<std::int64_t>(capture.Lost()) : -1;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string path = argc > 1 ? argv[1] : "share-benchmark";
    const bool isTrial = argc > 2;
    const int seconds = isTrial ? std::atoi(argv[2]) : 20;
    std::filesystem::create_directories(path);
    av_log_set_level(AV_LOG_QUIET);  // of the clips that are refused
    static Settings settings;        // the cameras use it until the process ends
    if (isTrial) {
        settings.width = 320;
        settings.height = 180;
        settings.secondsBefore = settings.secondsAfter = 1;
    }
    static Folder folder(path, settings);
    Tolvex::Ilog::Logger::GetInstance()->EnableFile(folder.Path("dashcam.log"));
    const double share = MeasureShare(settings, folder, seconds);
    const std::int64_t lost = CountLostFrames(settings, folder, isTrial ? 1 : 3);
    const bool good = isTrial ? share < 100.0 && lost >= 0 : share <= 1.0 && lost == 0;
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
