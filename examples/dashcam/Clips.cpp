#include "examples/dashcam/Clips.h"

#include <exception>
#include <memory>
#include <utility>

#include "Tolvex/Crypto/Crypto.h"
#include "Tolvex/Json/Standard.h"
#include "Tolvex/Log/LogLine.h"

#include "examples/dashcam/Container.h"
#include "examples/dashcam/Page.h"
#include "examples/dashcam/SideFile.h"

namespace Dashcam {

using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

namespace {

constexpr int mostInWork = 8;  ///< events; a disk that hangs must not fill the memory with clips

}  // namespace

Event MakeEvent(const std::string& cause, double force)
{
    timespec sinceBoot = {};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const double bootSeconds =
        static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) * 1e-9;
    return {cause, Clock::now(), std::time(nullptr), bootSeconds, force};
}

Clips::Clips(const Settings& wishes, Recorder& source, Folder& target)
    : settings(wishes), recorder(source), folder(target)
{
    signalName = "Clips";
}

void Clips::Raise(const std::string& cause, double force)
{
    LogLine(LogType::Notice, LogModule::Event) << "event: " << cause << ", " << force << " g";
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ++count.events;
        count.last = cause + ", clip is being taken";
        if (inWork < mostInWork) {
            queue.push_back(MakeEvent(cause, force));
            ++inWork;
            pending.Notify();
            return;
        }
    }
    Report(&Count::lost, "event lost: the disk does not keep up");
}

bool Clips::WaitSignal(void** data)
{
    pending.Wait();
    const std::lock_guard<std::mutex> lock(mutex);
    *data = new Event(std::move(queue.front()));
    queue.pop_front();
    return true;
}

void Clips::FireSignal(void* data)
{
    const std::unique_ptr<const Event> event(static_cast<Event*>(data));
    try {
        Record(*event);
    } catch (const std::exception& problem) {
        Report(&Count::lost, std::string("clip lost: ") + problem.what());
    }
    const std::lock_guard<std::mutex> lock(mutex);
    if (--inWork == 0) {
        settled.notify_all();
    }
}

void Clips::Record(const Event& event)
{
    const std::shared_ptr<Clip> clip = recorder.Begin(event);
    if (clip == nullptr) {
        LogLine(LogType::Info, LogModule::Event) << "the open clip is prolonged";
        return;
    }
    recorder.AwaitEnd(*clip);
    if (clip->frames.empty()) {
        Report(&Count::lost, "clip lost: there was no picture");
        return;
    }
    Write(*clip);
    WritePage();
}

void Clips::Write(const Clip& clip)
{
    const auto parameters = recorder.Parameters();
    Recording recording;
    recording.clip = MakeMp4(clip.frames, *parameters);
    recording.still = MakeJpeg(*clip.frames.front(), *parameters);

    const std::string name = folder.Reserve(clip.events.front().wallTime);
    try {
        const auto samples =
            accelerometer->Between(clip.frames.front()->Time(), clip.frames.back()->Time());
        recording.side =
            Tolvex::Json::SerializeStandard(DescribeClip(name, clip, samples, settings)) + '\n';
        recording.signature =
            Tolvex::Crypto::HMAC_SHA1(recording.clip + recording.side, settings.key) + '\n';
        folder.Save(name, recording);
    } catch (const std::exception&) {
        folder.Release(name);
        throw;
    }
    Report(&Count::written, name + ".mp4");
}

void Clips::WritePage()
{
    const std::lock_guard<std::mutex> lock(pageMutex);
    try {
        folder.Write("index.html", MakePage(folder));
    } catch (const std::exception& problem) {
        LogLine(LogType::Error, LogModule::Event) << "the page is old: " << problem.what();
    }
}

void Clips::RunIgnitionOff()
{
    recorder.Close();
    std::unique_lock<std::mutex> lock(mutex);
    settled.wait(lock, [this] { return inWork == 0; });
}

Clips::Count Clips::Counted() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return count;
}

void Clips::Report(int Count::*counter, const std::string& text)
{
    const bool good = counter == &Count::written;
    LogLine(good ? LogType::Notice : LogType::Error, LogModule::Event) << text;
    const std::lock_guard<std::mutex> lock(mutex);
    ++(count.*counter);
    count.last = text;
}

}  // namespace Dashcam
