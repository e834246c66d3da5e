#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "Tolvex/Interfaces/IThread.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"

#include "examples/dashcam/Recorder.h"
#include "examples/dashcam/VideoSource.h"

namespace Dashcam {

/// The worker that takes pictures, encodes them as H.264 with a key frame at a fixed interval, and
/// hands them to the recorder: one in each pass. A source that fails is opened again every second.
/// @par Thread safety
/// Controlling thread. The counters may be read on any thread.
class Capture : public Tolvex::Interfaces::IThread, public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// @param wishes  Must outlive the worker.
    /// @param sink    Receives the frames; must outlive the worker.
    /// @param camera  Such as "/dev/video0"; empty for none.
    /// @param file    Of a video; empty for none. Without both: the test picture.
    Capture(const Settings& wishes, Recorder& sink, std::string camera, std::string file);

    /// Takes no more pictures.
    void RunIgnitionOff() override { Stop(); }

    /// @return frames that the recorder has received.
    std::uint64_t Frames() const { return frames; }
    /// @return pictures that never became frames.
    std::uint64_t Lost() const { return lost; }

protected:
    void Run() override;

private:
    void Open();
    std::shared_ptr<Frame> Encode(const Picture& picture);

    const Settings& settings;
    Recorder& recorder;
    VideoSource source;
    AvCodecOwner encoder;  ///< null: not open, and neither is the source
    std::shared_ptr<const AVCodecParameters> parameters;  ///< of what the encoder makes
    int sinceKey = 0;       ///< frames since the last key frame, itself included; 0: one is due
    std::string complaint;  ///< the last one; it is not logged twice in a row
    std::atomic<std::uint64_t> frames = 0;
    std::atomic<std::uint64_t> lost = 0;
};

}  // namespace Dashcam
