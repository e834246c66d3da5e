#include "examples/dashcam/Clips.h"

#include "PageTemplate.h"  // made of page.html by CMake
#include "examples/dashcam/ClipFiles.h"

namespace Dashcam {
namespace {

constexpr int mostInWork = 8;  ///< events; a disk that hangs must not fill the memory with clips

/// @return an event of this moment.
Event MakeEvent(const std::string& cause, double force)
{
    timespec sinceBoot = {};
    clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
    const double bootSeconds =
        static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) * 1e-9;
    return {cause, Clock::now(), std::time(nullptr), bootSeconds, force};
}

}  // namespace

Clips::Clips(const Settings& wishes, Recorder& source, const Accelerometer& sensor, Folder& target)
    : settings(wishes), recorder(source), accelerometer(sensor), folder(target)
{
    signalName = "Clips";
}

void Clips::Raise(const std::string& cause, double force)
{
    // Logs nothing: the caller would wait for the log if the disk hangs.
    const std::lock_guard<std::mutex> lock(mutex);
    ++count.events;
    if (inWork == mostInWork) {
        ++count.lost;
        ++refused;
        count.last = "event lost: the disk does not keep up";
        return;
    }
    count.last = cause + ", clip is being taken";
    const Event event = MakeEvent(cause, force);
    queue.emplace_back(event, recorder.Begin(event));
    ++inWork;
    pending.Notify();
}

void Clips::Invoke(Tolvex::Interfaces::IThread* /*worker*/, void* force)
{
    Raise("acceleration", *static_cast<const double*>(force));
}

bool Clips::WaitSignal(void** data)
{
    pending.Wait();
    const std::lock_guard<std::mutex> lock(mutex);
    *data = new Work(std::move(queue.front()));
    queue.pop_front();
    return true;
}

void Clips::FireSignal(void* data)
{
    const std::unique_ptr<const Work> work(static_cast<Work*>(data));
    const auto& [event, clip] = *work;
    LogLine(LogType::Notice, LogModule::Event)
        << "event: " << event.cause << ", " << event.force << " g"
        << (clip == nullptr ? ", prolongs the open clip" : "");
    try {
        if (clip != nullptr) {
            recorder.AwaitEnd(*clip);
            Write(*clip);
        }
    } catch (const std::exception& problem) {
        Report(&Count::lost, std::string("clip lost: ") + problem.what());
    }
    std::unique_lock<std::mutex> lock(mutex);
    if (const int lost = std::exchange(refused, 0); lost != 0) {
        lock.unlock();
        LogLine(LogType::Error, LogModule::Event)
            << lost << " events lost: the disk does not keep up";
        lock.lock();
    }
    if (--inWork == 0) {
        settled.notify_all();
    }
}

void Clips::Write(const Clip& clip)
{
    if (clip.frames.empty()) {
        throw Tolvex::IException("there was no picture");
    }
    std::map<std::string, std::string> files;
    files["mp4"] = MakeMp4(clip.frames);
    files["jpg"] = MakeJpeg(*clip.frames.front());
    const auto samples =
        accelerometer.Between(clip.frames.front()->Time(), clip.frames.back()->Time());

    const std::lock_guard<std::mutex> lock(diskMutex);
    const std::string name = folder.Reserve(clip.events.front().wallTime);
    try {
        files["json"] = MakeSideFile(name, clip, samples, settings);
        files["sig"] = Tolvex::Crypto::HMAC_SHA1(files["mp4"] + files["json"], settings.key) + '\n';
        folder.Save(name, files);
    } catch (const std::exception&) {
        folder.Remove(name);
        throw;
    }
    Report(&Count::written, name + ".mp4");
    WritePage();
}

/// The page is a script, which shows the side files of all events. They are in the page itself.
void Clips::WritePage()
{
    try {
        std::string sides;
        for (const auto& [time, number, name] : folder.Events()) {
            // No text in a side file can end the element.
            sides += "<script type=\"application/json\" data-name=\"" + name + "\">" +
                     Tolvex::Util::Replace(folder.Read(name + ".json"), "<", "\\u003c") +
                     "</script>\n";
        }
        folder.Write("index.html", Tolvex::Util::Replace(pageTemplate, "<!-- events -->", sides));
    } catch (const std::exception& problem) {
        LogLine(LogType::Error, LogModule::Event) << "the page is old: " << problem.what();
    }
}

void Clips::RunIgnitionOff()
{
    recorder.Close();
    {
        std::unique_lock<std::mutex> lock(mutex);
        settled.wait(lock, [this] { return inWork == 0; });
    }
    const std::lock_guard<std::mutex> lock(diskMutex);
    WritePage();  // also without an event; the watch may have removed some
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
