#pragma once

#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Tolvex/Pipeline/IPipelineElement.h"

#include "examples/dashcam/Frame.h"
#include "examples/dashcam/Settings.h"

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

/// The frames around one event, or around several that follow each other closely.
struct Clip
{
    std::vector<Event> events;                   ///< the first one has begun the clip
    std::vector<std::shared_ptr<Frame>> frames;  ///< the first one is a key frame
    Moment until;                                ///< the first frame at or after it ends the clip
    bool complete = false;                       ///< no frame follows
};

/// Keeps the last seconds in its ring, and collects the frames of the clip that is open.
/// @par Thread safety
/// Thread-safe, but for what it inherits without overriding it.
class Recorder : public Tolvex::Pipeline::IPipelineElement
{
public:
    /// @param wishes  Must outlive the recorder.
    explicit Recorder(const Settings& wishes);

    /// Does nothing: the ring is ready. @return true.
    bool Open() override { return true; }
    /// Takes the next frame of the stream. Never waits for a disk.
    bool Process(const std::shared_ptr<Tolvex::Pipeline::IPipelineCbElement>& frame) override;
    /// Completes the open clip. A clip that begins later has no seconds after its event.
    void Close() override;

    /// Begins the clip of an event, or prolongs the open one as far as the settings allow.
    /// @return the new clip, for AwaitEnd(); null when the open one has been prolonged.
    std::shared_ptr<Clip> Begin(const Event& event);
    /// Waits until the clip is complete; a little longer than its time when no frames come.
    void AwaitEnd(Clip& clip);

    /// @return how full the ring is, in percent.
    int Fill() const;

private:
    void CollectFromRing(Clip& clip) const;
    void Complete();

    const Settings& settings;
    mutable std::mutex mutex;           ///< guards all below, and the ring
    std::condition_variable completed;  ///< a clip is complete
    std::shared_ptr<Clip> open;         ///< null: none
    std::int64_t framesTaken = 0;
    bool closed = false;
};

}  // namespace Dashcam
