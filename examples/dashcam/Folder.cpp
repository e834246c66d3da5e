#include "examples/dashcam/Folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
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
using Tolvex::Util::EventFileName;

namespace {

constexpr const char* prefix = "EVENT_FRONT_";
// The clip is removed first and written last: without it the others are leftovers.
constexpr const char* extensions[] = {"mp4", "sig", "json", "jpg"};
constexpr std::uintmax_t megabyte = 1000000;

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

bool IsMountPoint(const std::string& path)
{
    struct stat inside = {};
    struct stat outside = {};
    return stat(path.c_str(), &inside) == 0 && stat((path + "/..").c_str(), &outside) == 0 &&
           inside.st_dev != outside.st_dev;
}

}  // namespace

Folder::Folder(std::string where, const Settings& wishes)
    : path(std::move(where)), settings(wishes), isMountPoint(IsMountPoint(path))
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
        const bool isOfEvent =
            Tolvex::Util::ReadEventFileName(file.filename(), parts) && parts.prefix == prefix &&
            std::count(std::begin(extensions), std::end(extensions), parts.extension) != 0;
        if (file.extension() == ".part" ||
            (isOfEvent && !fs::exists(fs::path(file).replace_extension("mp4"), ignored))) {
            LogLine(LogType::Notice, LogModule::Event) << "removed " << file.filename().string()
                                                       << ", which the last drive left unfinished";
            fs::remove(file, ignored);
        }
    }
}

std::string Folder::Reserve(std::time_t time)
{
    RequireDisk();
    return fs::path(Tolvex::Util::CreateEventFile(path, prefix, time, "json")).stem();
}

void Folder::Save(const std::string& name, const std::map<std::string, std::string>& files)
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::uintmax_t bytes = 0;
    for (const auto& [extension, content] : files) {
        bytes += content.size();
    }
    MakeRoom(bytes);
    for (auto extension = std::rbegin(extensions); extension != std::rend(extensions);
         ++extension) {
        Write(name + '.' + *extension, files.at(*extension));
    }
    const int directory = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    fsync(directory);  // the new names
    close(directory);
}

void Folder::Remove(const std::string& name)
{
    std::error_code ignored;
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

std::vector<std::string> Folder::Events() const
{
    std::vector<std::tuple<std::time_t, std::uint32_t, std::string>> found;
    for (const fs::path& file : FilesIn(path)) {
        EventFileName parts;
        if (Tolvex::Util::ReadEventFileName(file.filename(), parts) && parts.prefix == prefix &&
            parts.extension == "mp4") {
            found.emplace_back(parts.time, parts.number, file.stem().string());
        }
    }
    std::sort(found.rbegin(), found.rend());
    std::vector<std::string> names;
    names.reserve(found.size());
    for (const auto& event : found) {
        names.push_back(std::get<std::string>(event));
    }
    return names;
}

void Folder::MakeRoom(std::uintmax_t bytes)
{
    const std::uintmax_t limit = static_cast<unsigned>(settings.folderMegabytes) * megabyte;
    const std::uintmax_t floor = static_cast<unsigned>(settings.diskFloorMegabytes) * megabyte;
    const auto isTight = [&] {
        std::error_code problem;
        std::uintmax_t sum = bytes;
        for (const fs::path& file : FilesIn(path)) {
            const std::uintmax_t size = fs::file_size(file, problem);
            sum += problem ? 0 : size;
        }
        const fs::space_info disk = fs::space(path, problem);
        return sum > limit || (!problem && disk.available < floor + bytes);
    };
    std::vector<std::string> events = Events();
    for (; !events.empty() && isTight(); events.pop_back()) {
        LogLine(LogType::Notice, LogModule::Event)
            << "removed " << events.back() << " to make room";
        Remove(events.back());
    }
}

}  // namespace Dashcam
