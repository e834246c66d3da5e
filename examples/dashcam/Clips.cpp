#include "examples/dashcam/Clips.h"

#include <cstdio>

#include "PageTemplate.h"  // made of page.html by CMake
#include "examples/dashcam/ClipFiles.h"

namespace Dashcam {

constexpr int mostUnfinished = 8;  ///< events; a disk that hangs must not fill the memory

Clips::Clips(const Settings& configured, Recorder& source, const Accelerometer& sensor,
             Folder& target)
    : settings(configured), recorder(source), accelerometer(sensor), folder(target)
{
    signalName = "Clips";
}

void Clips::Raise(const std::string& cause, double force)
{
    // Logs nothing: the caller would wait for the log if the disk hangs.
    const std::lock_guard<std::mutex> lock(mutex);
    ++count.events;
    try {
        if (count.Unfinished() > mostUnfinished) {
            throw Tolvex::IException("the disk does not keep up");
        }
        timespec sinceBoot = {};
        clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
        const double bootSeconds =
            static_cast<double>(sinceBoot.tv_sec) + static_cast<double>(sinceBoot.tv_nsec) * 1e-9;
        const Event event = {cause, Clock::now(), std::time(nullptr), bootSeconds, force};
        std::list<Work> work(1, {event, nullptr});  // first, so that no clip begins without memory
        work.back().second = recorder.Begin(event);
        queue.splice(queue.end(), work);
        std::snprintf(count.last, sizeof count.last, "%s, clip is being taken", cause.c_str());
    } catch (const std::exception& problem) {
        ++count.lost;
        ++refused;
        std::snprintf(count.last, sizeof count.last, "event lost: %s", problem.what());
    }
    // With nothing in the queue, a thread that finishes another event logs the refusal.
    if (!queue.empty() || count.Unfinished() == 0) {
        pending.Notify();
    }
}

void Clips::Invoke(Tolvex::Interfaces::IThread* /*worker*/, void* force)
{
    Raise("acceleration", *static_cast<const double*>(force));
}

bool Clips::WaitSignal(void** /*data*/)
{
    pending.Wait();
    return true;
}

void Clips::FireSignal(void* /*data*/)
{
    std::unique_lock<std::mutex> lock(mutex);
    while (!queue.empty()) {
        const auto [event, clip] = std::move(queue.front());
        queue.pop_front();
        lock.unlock();
        LogLine(LogType::Notice, LogModule::Event)
            << "event: " << event.cause << ", " << event.force << " g"
            << (clip == nullptr ? ", prolongs the open clip" : "");
        const bool written = clip != nullptr && Write(*clip);
        lock.lock();
        ++(clip == nullptr ? count.prolonged : written ? count.written : count.lost);
        settled.notify_all();
    }
    const int lost = std::exchange(refused, 0);
    lock.unlock();
    if (lost != 0) {
        LogLine(LogType::Error, LogModule::Event)
            << lost << " events lost: the disk or the memory does not keep up";
    }
}

/// @return false when the clip is lost.
bool Clips::Write(Clip& clip)
{
    std::string name;  // of the files on the disk; empty: none
    try {
        recorder.AwaitEnd(clip);
        if (clip.frames.empty()) {
            throw Tolvex::IException("there was no picture");
        }
        std::map<std::string, std::string> files;
        files["mp4"] = MakeMp4(clip.frames);
        files["jpg"] = MakeJpeg(*clip.frames.front());
        const auto samples =
            accelerometer.Between(clip.frames.front()->Time(), clip.frames.back()->Time());

        const std::lock_guard<std::mutex> lock(diskMutex);
        name = folder.Reserve(clip.events.front().wallTime);
        files["json"] = MakeSideFile(name, clip, samples, settings);
        files["sig"] = Tolvex::Crypto::HMAC_SHA1(files["mp4"] + files["json"], settings.key) + '\n';
        folder.Save(name, files);
        Report(LogType::Notice, name.c_str(), ".mp4");
        WritePage();
        return true;
    } catch (const std::exception& problem) {
        if (!name.empty()) {
            folder.Remove(name);
        }
        Report(LogType::Error, "clip lost: ", problem.what());
        return false;
    }
}

/// The page is a script, which shows the side files of all events. They are in the page itself.
void Clips::WritePage()
try {
    std::string sides;
    for (const auto& [time, number, name] : folder.Events()) {
        // No text in a side file can end the element.
        sides += "<script type=\"application/json\" data-name=\"" + name + "\">" +
                 Tolvex::Util::Replace(folder.Read(name + ".json"), "<", "\\u003c") + "</script>\n";
    }
    folder.Write("index.html", Tolvex::Util::Replace(pageTemplate, "<!-- events -->", sides));
} catch (const std::exception& problem) {
    LogLine(LogType::Error, LogModule::Event) << "the page is old: " << problem.what();
}

void Clips::RunIgnitionOff()
{
    recorder.Close();
    FireSignal(nullptr);  // events that no thread has taken
    std::unique_lock<std::mutex> lock(mutex);
    settled.wait(lock, [this] { return count.Unfinished() == 0; });
    lock.unlock();
    const std::lock_guard<std::mutex> diskLock(diskMutex);
    WritePage();  // also without an event; the watch may have removed some
}

Clips::Count Clips::Counted() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return count;
}

void Clips::Report(LogType type, const char* text, const char* rest)
{
    LogLine(type, LogModule::Event) << text << rest;
    const std::lock_guard<std::mutex> lock(mutex);
    std::snprintf(count.last, sizeof count.last, "%s%s", text, rest);
}

}  // namespace Dashcam
