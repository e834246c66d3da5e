#pragma once

#include <chrono>
#include <cstdint>
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
    Frame(std::int64_t id, AvPacketOwner bytes, Moment moment)
        : IPipelineCbElement(id), packet(std::move(bytes)), time(moment)
    {
    }

    /// @return whether it can be decoded without the frames before it.
    bool IsKey() const { return (packet->flags & AV_PKT_FLAG_KEY) != 0; }
    /// @return what the encoder made of it.
    const AVPacket& Packet() const { return *packet; }
    /// @return when it was taken.
    Moment Time() const { return time; }

private:
    const AvPacketOwner packet;
    const Moment time;
};

}  // namespace Dashcam
