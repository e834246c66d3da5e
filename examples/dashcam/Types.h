/// @file
/// What all parts share: the library, libav, the settings, and what the parts hand to each other.
#pragma once

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "Tolvex/Tolvex.h"

#include "examples/dashcam/Settings.h"

namespace Dashcam {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

constexpr AVRational microsecond = {1, 1000000};  ///< as a time base of libav

/// Releases with a function that takes the address of the pointer, as most of libav's do.
template <auto release>
struct AvRelease
{
    template <typename T>
    void operator()(T* object) const
    {
        release(&object);
    }
};

using AvCodecOwner = std::unique_ptr<AVCodecContext, AvRelease<avcodec_free_context>>;
using AvPacketOwner = std::unique_ptr<AVPacket, AvRelease<av_packet_free>>;
using AvPictureOwner = std::unique_ptr<AVFrame, AvRelease<av_frame_free>>;

/// Looks at the result of a call of libav.
/// @param code  The result; negative for an error.
/// @param what  What was being done, or with what; for people.
/// @throws Tolvex::IException with libav's reason when the code is negative.
inline void Check(int code, const std::string& what)
{
    if (code < 0) {
        char reason[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(code, reason, sizeof reason);
        throw Tolvex::IException((what + ": " + reason).c_str());
    }
}

/// As above, for a function of libav that returns an object.
/// @return the object, which is not null.
template <typename T>
T* Check(T* object, const std::string& what)
{
    Check(object == nullptr ? AVERROR(ENOMEM) : 0, what);
    return object;
}

/// One picture of the camera, encoded. Its number counts pictures; a number that is missing is a
/// picture that was lost.
/// @par Thread safety
/// Thread-safe: never changes.
class Frame : public Tolvex::Pipeline::IPipelineCbElement
{
public:
    /// @param id      Number of the picture.
    /// @param bytes   What the encoder made of it.
    /// @param moment  When it was taken.
    /// @param format  What a file needs to know of the stream.
    Frame(std::int64_t id, AvPacketOwner bytes, Moment moment,
          std::shared_ptr<const AVCodecParameters> format)
        : IPipelineCbElement(id),
          packet(std::move(bytes)),
          time(moment),
          parameters(std::move(format))
    {
    }

    /// @return whether it can be decoded without the frames before it.
    bool IsKey() const { return (packet->flags & AV_PKT_FLAG_KEY) != 0; }
    /// @return what the encoder made of it.
    const AVPacket& Packet() const { return *packet; }
    /// @return what a file needs to know of the stream.
    const AVCodecParameters& Parameters() const { return *parameters; }
    /// @return when it was taken.
    Moment Time() const { return time; }

private:
    const AvPacketOwner packet;
    const Moment time;
    const std::shared_ptr<const AVCodecParameters> parameters;
};

/// The acceleration of one moment: forward, to the left and up, in g. A car at rest
/// gives 0, 0, 1.
struct Sample
{
    Moment time;
    std::array<double, 3> axes = {};

    /// @return the force in g that acts in addition to gravity.
    double Force() const { return std::hypot(axes[0], axes[1], axes[2] - 1.0); }
};

/// Something that is worth a clip.
struct Event
{
    std::string cause;     ///< "acceleration" or "button"
    Moment time;           ///< monotonic clock
    std::time_t wallTime;  ///< wall clock; may be wrong
    double bootSeconds;    ///< since the system was started, sleep included
    double force = 0.0;    ///< g in addition to gravity; 0: not known
};

/// The frames around one event, or around several that follow each other closely.
struct Clip
{
    std::vector<Event> events;                   ///< the first one has begun the clip
    std::vector<std::shared_ptr<Frame>> frames;  ///< the first one is a key frame
    Moment until;                                ///< the first frame at or after it ends the clip
    bool complete = false;                       ///< no frame follows
};

}  // namespace Dashcam
