#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>

#include "Tolvex/Interfaces/ISemaphore.h"
#include "Tolvex/Interfaces/ISignal.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"

#include "examples/dashcam/Accelerometer.h"
#include "examples/dashcam/Folder.h"
#include "examples/dashcam/Recorder.h"

namespace Dashcam {

/// Turns events into clips, each on a thread of its own: a slow disk delays no event.
///
/// Never destroyed: its threads may use it until the process ends.
/// @par Thread safety
/// Thread-safe.
class Clips : public Tolvex::Interfaces::ISignal, public Tolvex::Interfaces::IgnitionOffMode
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

    /// @param wishes, source, target  Not owned; must exist as long as the process.
    Clips(const Settings& wishes, Recorder& source, Folder& target);

    /// Says where the samples of a clip come from. Before Start(). The accelerometer reports to
    /// this object, so it is made later.
    void SetAccelerometer(const Accelerometer& source) { accelerometer = &source; }

    /// Reports that something has happened at this moment. Does not block.
    /// @param cause  "acceleration" or "button".
    /// @param force  In g; 0 if it is not known.
    void Raise(const std::string& cause, double force);

    /// Completes the open clip, waits until all clips are written, and writes the page.
    void RunIgnitionOff() override;

    /// @return a snapshot.
    Count Counted() const;

    bool WaitSignal(void** data) override;
    void FireSignal(void* data) override;

private:
    void Handle(const Event& event);
    void Write(const Clip& clip);
    void WritePage();
    void Report(int Count::*counter, const std::string& text);

    const Settings& settings;
    Recorder& recorder;
    Folder& folder;
    const Accelerometer* accelerometer = nullptr;

    Tolvex::Interfaces::ISemaphore pending{0};  ///< events in the queue
    mutable std::mutex mutex;                   ///< guards all below
    std::condition_variable settled;            ///< inWork has become 0
    std::deque<Event> queue;
    int inWork = 0;   ///< events that are neither a clip nor lost yet
    int refused = 0;  ///< events that were lost and are not in the log yet
    Count count;
    std::mutex pageMutex;  ///< one page is written at a time; not taken together with the other
};

}  // namespace Dashcam
