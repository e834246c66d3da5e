#include "examples/dashcam/Folder.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Dashcam {

namespace {

constexpr const char* prefix = "EVENT_FRONT_";
// The clip is written last and removed first: without it the others are leftovers.
constexpr const char* extensions[] = {"jpg", "json", "sig", "mp4"};

/// @return the names in a directory; none when it is away. The iterator of std::filesystem would
/// end the process when there is no memory.
std::vector<std::string> NamesIn(const std::string& path)
{
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(path.c_str()), closedir);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread reads from this directory stream.
    while (const dirent* const entry = directory ? readdir(directory.get()) : nullptr) {
        names.emplace_back(entry->d_name);
    }
    return names;
}

bool IsOfEvent(const std::string& name)
{
    Tolvex::Util::EventFileName parts;
    return Tolvex::Util::ReadEventFileName(name, parts) && parts.prefix == prefix &&
           std::count(std::begin(extensions), std::end(extensions), parts.extension) != 0;
}

/// @return the bytes of a file; 0 when it is none.
std::uintmax_t SizeOf(const char* file)
{
    struct stat status = {};
    return stat(file, &status) == 0 && S_ISREG(status.st_mode)
               ? static_cast<std::uintmax_t>(status.st_size)
               : 0;
}

/// @return 0 when there is no such path.
dev_t DeviceOf(const std::string& path)
{
    struct stat status = {};
    stat(path.c_str(), &status);
    return status.st_dev;
}

}  // namespace

Folder::Folder(const std::string& where, const Settings& configured)
    : path(where), settings(configured), isMountPoint(DeviceOf(path) != DeviceOf(path + "/.."))
{
}

bool Folder::IsAway() const
{
    return isMountPoint && DeviceOf(path) == DeviceOf(path + "/..");
}

/// Throws when the disk is away.
void Folder::RequireDisk() const
{
    if (IsAway()) {
        throw Tolvex::IException((path + ": the disk is away").c_str());
    }
}

void Folder::ClearLeftovers()
{
    for (const std::string& name : NamesIn(path)) {
        const std::string stem = name.substr(0, name.rfind('.'));
        const bool isPart = name.ends_with(".part") &&
                            (IsOfEvent(stem) || stem == "index.html" || stem == "drive.json");
        const bool isAlone = IsOfEvent(name) && access(Path(stem + ".mp4").c_str(), F_OK) != 0;
        if ((isPart || isAlone) && std::remove(Path(name).c_str()) == 0) {
            LogLine(LogType::Notice, LogModule::Event)
                << "removed " << name << ", which the last drive left unfinished";
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
    std::string name = Tolvex::Util::CreateEventFile(path, prefix, time, "json");
    name.erase(name.rfind('.'));  // in place: without memory the file would stay behind
    name.erase(0, name.rfind('/') + 1);
    return name;
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
    fsync(directory);  // best effort: without it a power cut may lose this event, but no older one
    close(directory);
}

std::uintmax_t Folder::Remove(const std::string& name) noexcept
{
    std::uintmax_t bytes = 0;
    for (auto at = std::rbegin(extensions); at != std::rend(extensions); ++at) {
        char file[PATH_MAX];
        std::snprintf(file, sizeof file, "%s/%s.%s", path.c_str(), name.c_str(), *at);
        const std::uintmax_t size = SizeOf(file);
        bytes += std::remove(file) == 0 ? size : 0;
    }
    return bytes;
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
    constexpr std::uintmax_t mostBytes = 16000000;  // those of the longest clip and fastest sensor
    const std::uintmax_t bytes = SizeOf(Path(fileName).c_str());
    std::string content(bytes <= mostBytes ? static_cast<std::size_t>(bytes) : 0, '\0');
    if (!content.empty()) {  // it is no FIFO, where reading would wait for a writer
        std::ifstream(Path(fileName)).read(content.data(), static_cast<std::streamsize>(bytes));
    }
    return content;
}

std::set<Folder::StoredEvent> Folder::Events() const
{
    std::set<StoredEvent> events;
    for (const std::string& name : NamesIn(path)) {
        Tolvex::Util::EventFileName parts;
        if (name.ends_with(".mp4") && Tolvex::Util::ReadEventFileName(name, parts) &&
            parts.prefix == prefix) {
            events.emplace(parts.time, parts.number, name.substr(0, name.rfind('.')));
        }
    }
    return events;
}

void Folder::MakeRoom(std::uintmax_t bytes)
{
    constexpr std::uintmax_t megabyte = 1000000;
    const std::uintmax_t limit = static_cast<unsigned>(settings.folderMegabytes) * megabyte;
    const std::uintmax_t floor = static_cast<unsigned>(settings.diskFloorMegabytes) * megabyte;
    const std::lock_guard<std::mutex> lock(roomMutex);
    std::uintmax_t sum = bytes;
    for (const std::string& name : NamesIn(path)) {
        sum += SizeOf(Path(name).c_str());
    }
    for (const auto& [time, number, name] : Events()) {
        std::error_code unknown;
        const auto disk = std::filesystem::space(path, unknown);
        if (sum <= limit && (unknown || disk.available >= floor + bytes)) {
            return;
        }
        if (const std::uintmax_t freed = Remove(name); freed != 0) {
            LogLine(LogType::Notice, LogModule::Event) << "removed " << name << " to make room";
            sum -= freed;
        }
    }
}

}  // namespace Dashcam
