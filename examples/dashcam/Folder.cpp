#include "examples/dashcam/Folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Dashcam {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Tolvex::Util::EventFileName;

namespace {

constexpr const char* prefix = "EVENT_FRONT_";
// The clip is written last and removed first: without it the others are leftovers.
constexpr const char* extensions[] = {"jpg", "json", "sig", "mp4"};

/// @return the files of a directory; none when it is away.
std::vector<fs::path> FilesIn(const std::string& path)
{
    std::vector<fs::path> files;
    std::error_code problem;
    for (fs::directory_iterator at(path, problem), end; at != end; at.increment(problem)) {
        files.push_back(at->path());
    }
    return files;
}

/// @return whether it is a file of an event; then its name has these parts.
bool IsOfEvent(const fs::path& file, EventFileName& parts)
{
    return Tolvex::Util::ReadEventFileName(file.filename(), parts) && parts.prefix == prefix &&
           std::count(std::begin(extensions), std::end(extensions), parts.extension) != 0;
}

bool IsMountPoint(const std::string& path)
{
    struct stat inside = {};
    struct stat outside = {};
    return stat(path.c_str(), &inside) == 0 && stat((path + "/..").c_str(), &outside) == 0 &&
           inside.st_dev != outside.st_dev;
}

}  // namespace

Folder::Folder(const std::string& where, const Settings& wishes)
    : path(where), settings(wishes), isMountPoint(IsMountPoint(path))
{
}

/// Throws when the disk is away. What is under a mount point is not the disk.
void Folder::RequireDisk() const
{
    if (isMountPoint && !IsMountPoint(path)) {
        throw Tolvex::IException((path + ": the disk is away").c_str());
    }
}

void Folder::ClearLeftovers()
{
    std::error_code ignored;
    for (const fs::path& file : FilesIn(path)) {
        EventFileName parts;
        const fs::path clip = fs::path(file).replace_extension("mp4");
        if (file.extension() == ".part" || (IsOfEvent(file, parts) && !fs::exists(clip, ignored))) {
            LogLine(LogType::Notice, LogModule::Event) << "removed " << file.filename().string()
                                                       << ", which the last drive left unfinished";
            fs::remove(file, ignored);
        }
    }
}

std::string Folder::Reserve(std::time_t time)
{
    RequireDisk();
    // An event name has two digits of the year, from 2000 on. A clock that is not set tells 1970,
    // which would be read as 2070: such an event is to count as an old one.
    constexpr std::time_t startOf2000 = 946684800;
    time += time < startOf2000 ? startOf2000 : 0;
    return fs::path(Tolvex::Util::CreateEventFile(path, prefix, time, "json")).stem();
}

void Folder::Save(const std::string& name, const std::map<std::string, std::string>& files)
{
    std::uintmax_t bytes = 0;
    for (const auto& [extension, content] : files) {
        bytes += content.size();
    }
    MakeRoom(bytes);
    for (const char* extension : extensions) {
        Write(name + '.' + extension, files.at(extension));
    }
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fsync(directory);  // the new names
    close(directory);
}

void Folder::Remove(const std::string& name)
{
    std::error_code ignored;
    fs::remove(Path(name + ".mp4"), ignored);
    for (const char* extension : extensions) {
        fs::remove(Path(name + '.' + extension), ignored);
    }
}

void Folder::Write(const std::string& fileName, const std::string& bytes)
{
    RequireDisk();
    const std::string part = Path(fileName + ".part");
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(part.c_str(), "we"),
                                                               std::fclose);
    if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
        std::fflush(file.get()) != 0 || fdatasync(fileno(file.get())) != 0 ||
        std::rename(part.c_str(), Path(fileName).c_str()) != 0) {
        const std::string reason = std::generic_category().message(errno);
        std::remove(part.c_str());
        throw Tolvex::IException((part + ": " + reason).c_str());
    }
}

std::string Folder::Read(const std::string& fileName) const
{
    std::ostringstream content;
    content << std::ifstream(Path(fileName)).rdbuf();
    return content.str();
}

std::set<std::tuple<std::time_t, std::uint32_t, std::string>> Folder::Events() const
{
    std::set<std::tuple<std::time_t, std::uint32_t, std::string>> events;
    for (const fs::path& file : FilesIn(path)) {
        EventFileName parts;
        if (IsOfEvent(file, parts) && parts.extension == "mp4") {
            events.emplace(parts.time, parts.number, file.stem().string());
        }
    }
    return events;
}

/// @return whether folder or disk would pass their limits with so many more bytes.
bool Folder::IsTight(std::uintmax_t bytes) const
{
    constexpr std::uintmax_t megabyte = 1000000;
    const std::uintmax_t limit = static_cast<unsigned>(settings.folderMegabytes) * megabyte;
    const std::uintmax_t floor = static_cast<unsigned>(settings.diskFloorMegabytes) * megabyte;
    std::error_code problem;
    std::uintmax_t sum = bytes;
    for (const fs::path& file : FilesIn(path)) {
        const std::uintmax_t size = fs::file_size(file, problem);
        sum += problem ? 0 : size;
    }
    const fs::space_info disk = fs::space(path, problem);
    return sum > limit || (!problem && disk.available < floor + bytes);
}

void Folder::MakeRoom(std::uintmax_t bytes)
{
    for (const auto& [time, number, name] : Events()) {
        if (!IsTight(bytes)) {
            return;
        }
        LogLine(LogType::Notice, LogModule::Event) << "removed " << name << " to make room";
        Remove(name);
    }
}

void Watch::Run()
{
    std::string names;
    for (const auto& worker : Tolvex::Interfaces::ListWorkers()) {
        if (worker.worker != this && worker.runningPass > 3s) {
            names += ' ' + worker.name;
        }
    }
    if (names != hanging) {
        LogLine(LogType::Warning, LogModule::Event)
            << (names.empty() ? "no worker hangs any more" : "these workers hang:" + names);
        hanging = names;
    }
    folder.MakeRoom(0);
    ThreadSleep(1000ms, 50ms);
}

}  // namespace Dashcam
