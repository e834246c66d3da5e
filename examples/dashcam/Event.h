#pragma once

#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "examples/dashcam/Frame.h"

namespace Dashcam {

/// Something that is worth a clip.
struct Event
{
    std::string cause;     ///< "acceleration" or "button"
    Moment time;           ///< by the clock that is never set
    std::time_t wallTime;  ///< by the clock that people read; may be wrong
    double bootSeconds;    ///< since the system was started, sleep included
    double force = 0.0;    ///< g beside gravity; 0: not known
};

/// @return an event of this moment.
Event MakeEvent(const std::string& cause, double force);

/// The frames around one event, or around several that follow each other closely.
struct Clip
{
    std::vector<Event> events;                   ///< the first one has begun the clip
    std::vector<std::shared_ptr<Frame>> frames;  ///< the first one is a key frame
    Moment until;           ///< the clip ends with the first frame at or after this moment
    bool complete = false;  ///< no frame follows
};

}  // namespace Dashcam
