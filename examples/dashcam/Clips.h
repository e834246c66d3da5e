#pragma once

#include <condition_variable>
#include <list>
#include <mutex>

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {

/// Turns events into clips, each on a thread of its own: a slow disk delays no event.
///
/// Never destroyed: its threads may use it until the process ends.
/// @par Errors
/// None: an event or a clip that is lost is counted and logged, also without memory.
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
        int written = 0;    ///< clips
        int prolonged = 0;  ///< events that have prolonged the clip of another
        int lost = 0;       ///< clips that could not be written, and events without a clip
        /// What happened last, for people. An array: it can be set without memory.
        char last[200] = "no event yet";

        /// @return events that are none of these yet: their clips are being taken or written.
        int Unfinished() const { return events - written - prolonged - lost; }
    };

    /// @param configured, source, sensor, target  Not owned; must exist as long as the process.
    Clips(const Settings& configured, Recorder& source, const Accelerometer& sensor,
          Folder& target);

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
    /// Finishes all events in the queue. An event whose thread could not be created stays there
    /// until the next event or the ignition-off.
    void FireSignal(void* data) override;

private:
    /// An event, and the clip that it has begun; null when it has prolonged the open one.
    using Work = std::pair<Event, std::shared_ptr<Clip>>;

    bool Write(Clip& clip);
    void WritePage();
    void Report(LogType type, const char* text, const char* rest);

    const Settings& settings;
    Recorder& recorder;
    const Accelerometer& accelerometer;
    Folder& folder;
    std::mutex diskMutex;  ///< one clip, with its page, is written at a time

    Tolvex::Interfaces::ISemaphore pending{0};  ///< what the listener waits for, see Raise()
    mutable std::mutex mutex;         ///< guards all below; may be taken while diskMutex is held
    std::condition_variable settled;  ///< an event is finished
    std::list<Work> queue;            ///< events that no thread has taken yet
    Count count;
    int refused = 0;  ///< events that were lost and are not logged yet
};

}  // namespace Dashcam
