#include "examples/dashcam/Accelerometer.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <system_error>

namespace Dashcam {

using namespace std::chrono_literals;

namespace {

constexpr auto quietTime = 1s;             ///< between two shocks that are two events
constexpr std::size_t longestLine = 4096;  ///< bytes; more is no sample

/// @return false unless the line has three numbers of a sensor and nothing else.
bool ReadSample(const std::string& line, int range, Sample& sample)
{
    std::istringstream text(line);
    for (double& axis : sample.axes) {
        int raw = 0;
        if (!(text >> raw) || raw < -128 || raw > 127) {
            return false;
        }
        axis = static_cast<double>(Tolvex::UtilAcc::AccNativeToFloat(
            static_cast<unsigned char>(raw), static_cast<unsigned char>(range)));
    }
    return (text >> std::ws).eof();
}

}  // namespace

Accelerometer::Accelerometer(const Settings& configured, const std::string& file)
    : settings(configured),
      path(file),
      samples((configured.longestClip + configured.secondsBefore + 10) *
              configured.samplesPerSecond)
{
    SetThreadName("Accelerometer");
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
try {
    const std::size_t end = buffer.find('\n');
    if (end == std::string::npos) {
        ReadBytes();
        return;
    }
    Sample sample{Clock::now()};
    if (isFile) {
        const auto interval = std::chrono::microseconds(1000000 / settings.samplesPerSecond);
        sample.time = std::max(newest + interval, sample.time - quietTime);
        while (IsRunning() && Clock::now() < sample.time) {  // a sleep is a number of whole steps
            ThreadSleep(std::chrono::ceil<std::chrono::milliseconds>(sample.time - Clock::now()),
                        50ms);
        }
        newest = sample.time;
    }
    const bool good = ReadSample(buffer.substr(0, end), settings.sensorRange, sample);
    buffer.erase(0, end + 1);
    if (!good) {
        ++skipped;
        Complain("has lines that are no samples");
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        samples.AddNext(sample);
    }
    if (double force = sample.Force(); force >= settings.threshold) {
        if (sample.time - lastShock >= quietTime) {
            DoCallback(&force);
        }
        lastShock = sample.time;
    }
} catch (const std::exception&) {
    ThreadSleep(50ms, 50ms);  // there is no memory; the next pass tries again
}

void Accelerometer::Open()
{
    stat(path.c_str(), &status);  // open() says why it fails
    isFile = S_ISREG(status.st_mode);
    // Also open for writing: a FIFO without writers would be at its end all the time.
    descriptor = open(path.c_str(), (isFile ? O_RDONLY : O_RDWR) | O_NONBLOCK | O_CLOEXEC);
    newest = Clock::now();
}

/// Appends to the buffer. Waits for 100 ms at most, and a second after an error.
void Accelerometer::ReadBytes()
{
    if (buffer.size() > longestLine) {
        buffer = "\n";  // a line that is no sample
    }
    if (descriptor < 0) {
        Open();
    }
    pollfd input = {descriptor, POLLIN, 0};
    ssize_t count = -1;
    char bytes[512];
    if (descriptor >= 0) {
        poll(&input, 1, 100);
        count = read(descriptor, bytes, sizeof bytes);
    }
    if (count > 0) {
        buffer.append(bytes, static_cast<std::size_t>(count));
    } else if (isFile && count == 0 && lseek(descriptor, 0, SEEK_CUR) > 0) {
        lseek(descriptor, 0, SEEK_SET);
        buffer += buffer.empty() ? "" : "\n";  // the last line may lack its end
    } else if (count == 0 || errno != EAGAIN) {
        Complain(count == 0 ? "has no samples" : std::generic_category().message(errno));
        ThreadSleep(1000ms, 50ms);
    }
    struct stat now = {};
    if (count <= 0 && descriptor >= 0 && stat(path.c_str(), &now) == 0 &&
        (now.st_ino != status.st_ino || now.st_dev != status.st_dev)) {
        close(descriptor);
        descriptor = -1;
        buffer.erase(buffer.rfind('\n') + 1);  // The last line may lack its end.
    }
}

void Accelerometer::Complain(const std::string& problem)
{
    if (!std::exchange(complained, true)) {
        LogLine(LogType::Warning, LogModule::Accelerometer) << path << ' ' << problem;
    }
}

}  // namespace Dashcam
