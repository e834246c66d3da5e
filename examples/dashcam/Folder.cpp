#include "examples/dashcam/Folder.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>

#include "Tolvex/Exception/IException.h"
#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Util/EventFile.h"

namespace Dashcam {

namespace fs = std::filesystem;
using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

namespace {

constexpr const char* prefix = "EVENT_FRONT_";
constexpr const char* companions[] = {".jpg", ".json", ".sig"};  ///< of a clip, ".mp4"
constexpr std::uintmax_t megabyte = 1000000;

[[noreturn]] void Fail(const std::string& path, const std::string& reason)
{
    throw Tolvex::IException((path + ": " + reason).c_str());
}

class Descriptor
{
public:
    Descriptor(const std::string& path, int flags) : number(open(path.c_str(), flags, 0666)) {}
    ~Descriptor() { close(number); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return number; }

private:
    const int number;
};

void WriteAll(const std::string& path, const std::string& bytes)
{
    const Descriptor file(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
    bool good = file.Get() >= 0;
    for (std::size_t done = 0; good && done < bytes.size();) {
        const ssize_t count = write(file.Get(), bytes.data() + done, bytes.size() - done);
        good = count > 0 || errno == EINTR;
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    if (!good || fdatasync(file.Get()) != 0) {
        Fail(path, std::generic_category().message(errno));
    }
}

/// @return the files of a directory; none when it is away.
std::vector<fs::path> FilesIn(const std::string& path)
{
    std::vector<fs::path> files;
    std::error_code problem;
    for (fs::directory_iterator at(path, problem), end; !problem && at != end;
         at.increment(problem)) {
        files.push_back(at->path());
    }
    return files;
}

bool IsMountPoint(const std::string& path)
{
    struct stat inside = {};
    struct stat outside = {};
    return stat(path.c_str(), &inside) == 0 && stat((path + "/..").c_str(), &outside) == 0 &&
           inside.st_dev != outside.st_dev;
}

}  // namespace

Folder::Folder(std::string where, const Settings& wishes) : path(std::move(where)), settings(wishes)
{
    std::error_code problem;
    fs::create_directories(path, problem);
    isMountPoint = IsMountPoint(path);
}

/// Throws when the disk is away. What is under a mount point is not the disk.
void Folder::RequireDisk() const
{
    if (isMountPoint && !IsMountPoint(path)) {
        Fail(path, "the disk is away");
    }
}

void Folder::ClearLeftovers()
{
    std::error_code ignored;
    for (const fs::path& file : FilesIn(path)) {
        const bool isCompanion = std::find(std::begin(companions), std::end(companions),
                                           file.extension()) != std::end(companions);
        Tolvex::Util::EventFileName parts;
        if (file.extension() == ".part" ||
            (isCompanion && Tolvex::Util::ReadEventFileName(file.filename(), parts) &&
             !fs::exists(fs::path(file).replace_extension(".mp4"), ignored))) {
            LogLine(LogType::Notice, LogModule::Event) << "removed " << file.filename().string()
                                                       << ", which the last drive left unfinished";
            fs::remove(file, ignored);
        }
    }
}

std::string Folder::Reserve(std::time_t time)
{
    RequireDisk();
    // The ".part" file reserves the name. If a clip has that name already, the reservation stays,
    // and the next name is tried.
    std::vector<std::string> taken;
    std::error_code ignored;
    do {
        taken.push_back(Tolvex::Util::CreateEventFile(path, prefix, time, "part"));
    } while (fs::exists(fs::path(taken.back()).replace_extension(".mp4"), ignored));
    std::string name = fs::path(taken.back()).stem();
    taken.pop_back();
    for (const std::string& file : taken) {
        fs::remove(file, ignored);
    }
    return name;
}

void Folder::Release(const std::string& name)
{
    std::error_code ignored;
    fs::remove(Path(name + ".part"), ignored);
}

void Folder::Save(const std::string& name, const Recording& recording)
{
    const std::lock_guard<std::mutex> lock(mutex);
    RequireDisk();
    MakeRoom(recording.clip.size() + recording.still.size() + recording.side.size());
    try {
        Write(name + ".jpg", recording.still);
        Write(name + ".json", recording.side);
        Write(name + ".sig", recording.signature);
        WriteAll(Path(name + ".part"), recording.clip);
        fs::rename(Path(name + ".part"), Path(name + ".mp4"));
        fsync(Descriptor(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC).Get());
    } catch (const std::exception&) {
        Remove(name);
        throw;
    }
}

void Folder::Write(const std::string& fileName, const std::string& bytes)
{
    RequireDisk();
    const std::string part = Path(fileName + ".part");
    std::error_code problem;
    try {
        WriteAll(part, bytes);
        fs::rename(part, Path(fileName));
    } catch (const std::exception&) {
        fs::remove(part, problem);
        throw;
    }
}

std::vector<std::string> Folder::Events() const
{
    std::vector<std::tuple<std::time_t, std::uint32_t, std::string>> found;
    for (const fs::path& file : FilesIn(path)) {
        Tolvex::Util::EventFileName parts;
        if (Tolvex::Util::ReadEventFileName(file.filename(), parts) && parts.extension == "mp4") {
            found.emplace_back(parts.time, parts.number, file.stem().string());
        }
    }
    std::sort(found.rbegin(), found.rend());
    std::vector<std::string> names;
    names.reserve(found.size());
    for (auto& [time, number, name] : found) {
        names.push_back(std::move(name));
    }
    return names;
}

void Folder::KeepLimits()
{
    const std::lock_guard<std::mutex> lock(mutex);
    MakeRoom(0);
}

/// Removes the oldest events until folder and disk have room for so many bytes; the mutex is held.
void Folder::MakeRoom(std::uintmax_t bytes)
{
    std::vector<std::string> events = Events();
    const std::uintmax_t limit = static_cast<unsigned>(settings.folderMegabytes) * megabyte;
    const std::uintmax_t floor = static_cast<unsigned>(settings.diskFloorMegabytes) * megabyte;
    const auto isTight = [&] {
        std::error_code problem;
        const fs::space_info disk = fs::space(path, problem);
        return Size() + bytes > limit || (!problem && disk.available < floor + bytes);
    };
    while (!events.empty() && isTight()) {
        LogLine(LogType::Notice, LogModule::Event)
            << "removed " << events.back() << " to make room";
        Remove(events.back());
        events.pop_back();
    }
}

/// The clip first: without it the others are leftovers.
void Folder::Remove(const std::string& name)
{
    std::error_code ignored;
    fs::remove(Path(name + ".mp4"), ignored);
    fs::remove(Path(name + ".part"), ignored);
    for (const char* extension : companions) {
        fs::remove(Path(name + extension), ignored);
    }
}

std::uintmax_t Folder::Size() const
{
    std::uintmax_t sum = 0;
    for (const fs::path& file : FilesIn(path)) {
        std::error_code problem;
        const std::uintmax_t size = fs::file_size(file, problem);
        sum += problem ? 0 : size;
    }
    return sum;
}

}  // namespace Dashcam
