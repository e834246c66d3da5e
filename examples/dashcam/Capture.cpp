#include "examples/dashcam/Capture.h"

#include <utility>

#include "Tolvex/Log/LogLine.h"

namespace Dashcam {

using namespace std::chrono_literals;
using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

Capture::Capture(const Settings& wishes, Recorder& sink, std::string camera, std::string file)
    : settings(wishes), recorder(sink), source(wishes, std::move(camera), std::move(file))
{
    SetThreadName("Capture");
    av_log_set_level(AV_LOG_FATAL);  // libav would write to the terminal; we log its reasons
}

void Capture::Run()
{
    if (!open && !Open()) {
        ThreadSleep(1s, 50ms);
        return;
    }
    Picture picture;
    if (!source.Read(picture)) {
        Complain(source.GetErrorText());
        open = false;
        return;
    }
    if (const std::shared_ptr<Frame> frame = encoder.Encode(picture); frame != nullptr) {
        recorder.Process(frame);
        const std::int64_t missing = frame->GetFrameId() - lastId - 1;
        lost += static_cast<std::uint64_t>(missing);
        ++frames;
        lastId = frame->GetFrameId();
    } else {
        Complain(encoder.GetErrorText());
    }
}

bool Capture::Open()
{
    if (!source.Open()) {
        Complain(source.GetErrorText());
        return false;
    }
    if (!encoder.Open(source.Width(), settings.height, settings)) {
        Complain(encoder.GetErrorText());
        return false;
    }
    recorder.SetParameters(encoder.Parameters());
    LogLine(LogType::Info, LogModule::Event)
        << source.Name() << ": " << source.Width() << 'x' << settings.height;
    complaint.clear();
    open = true;
    return true;
}

void Capture::Complain(const std::string& reason)
{
    if (reason != complaint) {
        LogLine(LogType::Error, LogModule::Event) << "no picture: " << reason;
        complaint = reason;
    }
}

}  // namespace Dashcam
