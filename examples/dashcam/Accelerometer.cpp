#include "examples/dashcam/Accelerometer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "Tolvex/Log/LogLine.h"
#include "Tolvex/Util/UtilAcc.h"

namespace Dashcam {

using namespace std::chrono_literals;
using Tolvex::LogModule;
using Tolvex::Ilog::LogLine;
using Tolvex::Ilog::LogType;

namespace {

constexpr auto quietTime = 1s;             ///< between two shocks that are two events
constexpr std::size_t longestLine = 4096;  ///< bytes; more is no sample

/// @return false unless the line has three numbers of a sensor and nothing else.
bool ReadSample(const std::string& line, unsigned char range, Sample& sample)
{
    std::istringstream text(line);
    for (double& axis : sample.axes) {
        int raw = 0;
        if (!(text >> raw) || raw < -128 || raw > 127) {
            return false;
        }
        axis = static_cast<double>(
            Tolvex::UtilAcc::AccNativeToFloat(static_cast<unsigned char>(raw), range));
    }
    std::string rest;
    return !(text >> rest);
}

}  // namespace

double ForceOf(const Sample& sample)
{
    const auto [forward, left, up] = sample.axes;
    return std::hypot(forward, left, up - 1.0);
}

Accelerometer::Accelerometer(const Settings& wishes, std::string file)
    : settings(wishes),
      path(std::move(file)),
      samples((wishes.longestClip + wishes.secondsBefore + 10) * wishes.samplesPerSecond)
{
    SetThreadName("Accelerometer");
}

Accelerometer::~Accelerometer()
{
    close(descriptor);
}

std::vector<Sample> Accelerometer::Between(Moment from, Moment to) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<Sample> found;
    for (int step = 1; step <= samples.GetRingSize(); ++step) {
        const auto slot = static_cast<unsigned int>(samples.GetRingPos() + step);
        const Sample sample = samples.GetElementAt(slot);
        if (sample.time >= from && sample.time <= to) {  // an empty slot has the time 0
            found.push_back(sample);
        }
    }
    return found;
}

void Accelerometer::Run()
{
    std::string line;
    if (!ReadLine(line)) {
        return;
    }
    Sample sample;
    if (!ReadSample(line, static_cast<unsigned char>(settings.sensorRange), sample)) {
        ++skipped;
        Complain("has lines that are no samples");
        return;
    }
    if (isFile) {
        due = std::max(due + std::chrono::microseconds(1000000 / settings.samplesPerSecond),
                       Clock::now() - quietTime);
        while (IsRunning() && Clock::now() < due) {
            ThreadSleep(std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()), 50ms);
        }
    }
    sample.time = isFile ? due : Clock::now();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        samples.AddNext(sample);
    }
    if (double force = ForceOf(sample); force >= settings.threshold) {
        if (sample.time - lastShock >= quietTime) {
            DoCallback(&force);
        }
        lastShock = sample.time;
    }
}

/// Waits for 100 ms at most. @return false when there is no whole line yet.
bool Accelerometer::ReadLine(std::string& line)
{
    const std::size_t end = buffer.find('\n');
    if (end != std::string::npos) {
        line = buffer.substr(0, end);
        buffer.erase(0, end + 1);
        return true;
    }
    if (buffer.size() > longestLine) {
        buffer = "\n";  // a line that is no sample
    }
    if (descriptor < 0) {
        // Also open for writing: a FIFO without writers would be at its end all the time.
        isFile = std::filesystem::is_regular_file(path);
        descriptor = open(path.c_str(), (isFile ? O_RDONLY : O_RDWR) | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0) {
            Complain(std::generic_category().message(errno));
            ThreadSleep(1000ms, 50ms);
            return false;
        }
        due = Clock::now();
    }
    pollfd input = {descriptor, POLLIN, 0};
    poll(&input, 1, 100);
    char bytes[512];
    const ssize_t count = read(descriptor, bytes, sizeof bytes);
    if (count > 0) {
        buffer.append(bytes, static_cast<std::size_t>(count));
    } else if (isFile && count == 0 && lseek(descriptor, 0, SEEK_CUR) > 0) {
        lseek(descriptor, 0, SEEK_SET);
        buffer += buffer.empty() ? "" : "\n";  // the last line may lack its end
    } else if (count == 0 || errno != EAGAIN) {
        Complain(count == 0 ? "has no samples" : std::generic_category().message(errno));
        ThreadSleep(1000ms, 50ms);
    }
    return false;
}

void Accelerometer::Complain(const std::string& problem)
{
    if (!complained) {
        LogLine(LogType::Warning, LogModule::Accelerometer) << path << ' ' << problem;
        complained = true;
    }
}

}  // namespace Dashcam
