#include "examples/dashcam/Recorder.h"

#include <algorithm>

namespace Dashcam {
namespace {

/// A whole number of key intervals, so that key frames have the same slots on every lap. There is
/// one more second for late events.
int RingSize(const Settings& settings)
{
    const int wanted = (settings.secondsBefore + 1) * settings.framesPerSecond;
    return (wanted / settings.keyInterval + 2) * settings.keyInterval;
}

}  // namespace

Recorder::Recorder(const Settings& configured)
    : IPipelineElement(RingSize(configured)), settings(configured)
{
}

bool Recorder::Process(const std::shared_ptr<Tolvex::Pipeline::IPipelineCbElement>& element)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const std::shared_ptr<Frame> frame = std::static_pointer_cast<Frame>(element);
    if (closed) {
        return false;
    }
    // Key frames must have slots that are multiples of the key interval. After the source was
    // reopened, empty slots fill the gap.
    while (frame->IsKey() && (GetRingPos() + 1) % settings.keyInterval != 0) {
        AddNext(nullptr);
    }
    AddNext(frame);
    ++framesTaken;

    if (open != nullptr && (!open->frames.empty() || frame->IsKey())) {
        open->frames.push_back(frame);
        if (frame->Time() >= open->until) {
            Complete();
        }
    }
    return true;
}

void Recorder::Close()
{
    const std::lock_guard<std::mutex> lock(mutex);
    closed = true;
    Complete();
}

std::shared_ptr<Clip> Recorder::Begin(const Event& event)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const Moment until = event.time + std::chrono::seconds(settings.secondsAfter);
    if (open != nullptr) {
        const std::chrono::seconds longest(settings.longestClip - settings.secondsBefore);
        if (until <= open->events.front().time + longest) {
            open->events.push_back(event);
            open->until = std::max(open->until, until);
            return nullptr;
        }
        Complete();  // it would become too long; the new clip has its own seconds before
    }
    auto clip = std::make_shared<Clip>();
    clip->events = {event};
    clip->until = until;
    CollectFromRing(*clip);
    open = clip;
    if (closed) {
        Complete();
    }
    return clip;
}

void Recorder::AwaitEnd(Clip& clip)
{
    constexpr std::chrono::seconds lateFrames(2);  // after which the clip ends without them
    std::unique_lock<std::mutex> lock(mutex);
    while (!completed.wait_until(lock, clip.until + lateFrames, [&] { return clip.complete; })) {
        if (Clock::now() >= clip.until + lateFrames) {  // not prolonged in the meantime
            Complete();                                 // the open clip is this one
        }
    }
}

int Recorder::Fill() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(std::min<std::int64_t>(framesTaken, GetRingSize()) * 100 /
                            GetRingSize());
}

/// The frames since the last key frame that is old enough; or since the oldest key frame.
void Recorder::CollectFromRing(Clip& clip) const
{
    const Moment begin = clip.events.front().time - std::chrono::seconds(settings.secondsBefore);
    const auto at = [this](int slot) {
        return std::static_pointer_cast<Frame>(GetElementAt(static_cast<unsigned int>(slot)));
    };
    int slot = 0;
    int back = 0;
    std::shared_ptr<Frame> key;
    do {
        slot = SeekBackKeyframe(back, settings.keyInterval);
        key = at(slot);
        back += settings.keyInterval;
    } while (back + settings.keyInterval <= GetRingSize() && key != nullptr && key->Time() > begin);
    const int newest = GetRingPos() >= slot ? GetRingPos() : GetRingPos() + GetRingSize();
    for (; slot <= newest; ++slot) {
        if (const std::shared_ptr<Frame> frame = at(slot); frame != nullptr) {
            clip.frames.push_back(frame);
        }
    }
}

/// Ends the open clip, if there is one; the mutex is held.
void Recorder::Complete()
{
    if (open != nullptr) {
        open->complete = true;
        open.reset();
        completed.notify_all();
    }
}

}  // namespace Dashcam
