// A recorder looks back in its ring for the last key frame at least a second ago, and plays from
// there to the newest frame. Every sixth frame is a key frame; there are ten frames a second.
#include <iostream>
#include <memory>

#include "Tolvex/Pipeline/IPipelineElement.h"

using Tolvex::Pipeline::IPipelineCbElement;

namespace {

constexpr int keyInterval = 6;
constexpr int framesPerSecond = 10;
constexpr int ringSize =
    5 * keyInterval;  // a multiple, so key frames have the same slots on every lap

/// Keeps the frames that pass through it.
class Recorder : public Tolvex::Pipeline::IPipelineElement
{
public:
    Recorder() : IPipelineElement(ringSize) {}

    bool Open() override { return true; }
    bool Process(const std::shared_ptr<IPipelineCbElement>& frame) override
    {
        AddNext(frame);
        return true;
    }
    void Close() override {}
};

}  // namespace

int main()
{
    Recorder recorder;
    for (int id = 0; id < 100; ++id) {
        recorder.Process(std::make_shared<IPipelineCbElement>(id));
    }

    const int newest = recorder.GetRingPos();
    const int key = recorder.SeekBackKeyframe(framesPerSecond, keyInterval);
    std::cout << "newest frame " << recorder.GetCurrentFrameId() << " in slot " << newest
              << "\nkey frame "
              << recorder.GetElementAt(static_cast<unsigned int>(key))->GetFrameId() << " in slot "
              << key << "\nplaying";

    for (int slot = key; slot != newest; slot = (slot + 1) % ringSize) {
        std::cout << ' ' << recorder.GetElementAt(static_cast<unsigned int>(slot))->GetFrameId();
    }
    std::cout << ' ' << recorder.GetCurrentFrameId() << std::endl;
    return 0;
}
