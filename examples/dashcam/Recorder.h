#pragma once

#include <condition_variable>
#include <mutex>

#include "examples/dashcam/Types.h"

namespace Dashcam {

/// Keeps the last seconds in its ring, and collects the frames of the clip that is open.
/// @par Thread safety
/// Thread-safe, except for inherited functions that it does not override.
class Recorder : public Tolvex::Pipeline::IPipelineElement
{
public:
    /// @param configured  Must outlive the recorder.
    explicit Recorder(const Settings& configured);

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
