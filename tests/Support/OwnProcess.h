/// @file
/// What the kernel reports about the process of the test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>
#include <sys/types.h>
#include <system_error>
#include <vector>

#include "tests/Support/ScratchDirectory.h"

namespace Tolvex::Support {

/// @return the kernel numbers of all threads.
inline std::vector<pid_t> Threads()
{
    std::vector<pid_t> threads;
    std::error_code error;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", error)) {
        threads.push_back(std::stoi(task.path().filename()));
    }
    return threads;
}

/// @return what the kernel tells in this file about a thread; an empty text when it has ended.
inline std::string AboutThread(pid_t thread, const std::string& file)
{
    return ReadFile("/proc/self/task/" + std::to_string(thread) + "/" + file);
}

/// @return the names of all threads, each with a newline at its end as the kernel gives it.
inline std::vector<std::string> ThreadNames()
{
    std::vector<std::string> names;
    for (const pid_t thread : Threads()) {
        names.push_back(AboutThread(thread, "comm"));
    }
    return names;
}

/// @return whether a thread has this name.
inline bool HasThread(const std::string& name)
{
    const std::vector<std::string> names = ThreadNames();
    return std::find(names.begin(), names.end(), name + "\n") != names.end();
}

/// @return the signals that the thread of this name blocks, as the kernel counts them: bit 0 is
/// signal 1. Nothing if no thread has the name.
inline std::optional<std::uint64_t> SignalsBlockedBy(const std::string& name)
{
    const std::string field = "SigBlk:";
    for (const pid_t thread : Threads()) {
        if (AboutThread(thread, "comm") == name + "\n") {
            const std::string status = AboutThread(thread, "status");
            const std::size_t position = status.find(field) + field.size();
            return std::stoull(status.substr(position), nullptr, 16);
        }
    }
    return std::nullopt;
}

/// @return whether a set of signals, as SignalsBlockedBy() gives it, holds the signal.
inline bool HasSignal(std::uint64_t signals, int signal)
{
    return (signals >> (signal - 1) & 1) != 0;
}

/// @return whether the thread with this kernel number sleeps at this moment.
inline bool Sleeps(pid_t thread)
{
    const std::string stat = AboutThread(thread, "stat");
    const std::size_t nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") S") == 0;
}

/// @return how often the thread with this kernel number has gone to sleep; 0 when it has ended.
inline unsigned long TimesSlept(pid_t thread)
{
    const std::string field = "\nvoluntary_ctxt_switches:";
    const std::string status = AboutThread(thread, "status");
    const std::size_t position = status.find(field);
    return position == std::string::npos ? 0 : std::stoul(status.substr(position + field.size()));
}

/// @return the path of the file that a descriptor leads to.
inline std::filesystem::path PathOf(int descriptor)
{
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
}

/// @return the number of open descriptors, including the one that counts them.
inline std::ptrdiff_t CountDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

}  // namespace Tolvex::Support
