#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "Tolvex/Pipeline/IPipelineElement.h"

#include "examples/dashcam/Av.h"

namespace Dashcam {

using Clock = std::chrono::steady_clock;
using Moment = Clock::time_point;

/// @return seconds from one moment to another.
inline double SecondsBetween(Moment from, Moment to)
{
    return std::chrono::duration<double>(to - from).count();
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

}  // namespace Dashcam
