#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {

/// Turns events into clips, each on a thread of its own: a slow disk delays no event.
///
/// Never destroyed: its threads may use it until the process ends.
/// @par Thread safety
/// Thread-safe.
class Clips : public Tolvex::Interfaces::ISignal,
              public Tolvex::Interfaces::IThread::IThreadDelegate,
              public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// What has become of the events so far.
    struct Count
    {
        int events = 0;
        int written = 0;
        int lost = 0;      ///< clips that could not be written, and events without a picture
        std::string last;  ///< what happened last, for people
    };

    /// @param wishes, source, sensor, target  Not owned; must exist as long as the process.
    Clips(const Settings& wishes, Recorder& source, const Accelerometer& sensor, Folder& target);

    /// Begins a clip for an event of this moment, or prolongs the open one. Does not wait for the
    /// disk.
    /// @param cause  "acceleration" or "button".
    /// @param force  In g; 0 if it is not known.
    void Raise(const std::string& cause, double force);

    /// The accelerometer reports a shock.
    /// @param force  Points to a double, in g.
    void Invoke(Tolvex::Interfaces::IThread* worker, void* force) override;

    /// Completes the open clip, waits until all clips are written, and writes the page.
    void RunIgnitionOff() override;

    /// @return a snapshot.
    Count Counted() const;

    bool WaitSignal(void** data) override;
    void FireSignal(void* data) override;

private:
    /// An event, and the clip that it has begun; null when it has prolonged the open one.
    using Work = std::pair<Event, std::shared_ptr<Clip>>;

    void Write(const Clip& clip);
    void WritePage();
    void Report(int Count::*counter, const std::string& text);

    const Settings& settings;
    Recorder& recorder;
    const Accelerometer& accelerometer;
    Folder& folder;
    std::mutex diskMutex;  ///< one clip, with its page, is written at a time

    Tolvex::Interfaces::ISemaphore pending{0};  ///< events in the queue
    mutable std::mutex mutex;         ///< guards all below; may be taken while diskMutex is held
    std::condition_variable settled;  ///< inWork has become 0
    std::deque<Work> queue;
    int inWork = 0;   ///< events that are neither a clip nor lost yet
    int refused = 0;  ///< events that were lost and are not in the log yet
    Count count;
};

}  // namespace Dashcam
