#pragma once

#include <atomic>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

#include "examples/dashcam/Types.h"

namespace Dashcam {

/// The worker that reads the accelerometer, one sample in each pass. Its observers are told about
/// every shock: they receive a pointer to the force in g, a double.
///
/// Samples are lines of three raw numbers of the sensor, -128 to 127. They come from a FIFO as they
/// are written, or from a file at the pace of the settings, again and again.
/// @par Errors
/// A file that cannot be read is tried again every second. If the path names another file or FIFO
/// when the old one has been read to its end, the other one is read. Only the first problem of a
/// drive is logged; bad lines are counted.
/// @par Thread safety
/// Controlling thread. Between() and Skipped() may be called on any thread.
class Accelerometer : public Tolvex::Interfaces::IThread, public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// @param configured  Must outlive the worker.
    /// @param file    Its path, or that of a FIFO.
    Accelerometer(const Settings& configured, const std::string& file);
    ~Accelerometer() override { close(descriptor); }

    /// Stops the worker.
    void RunIgnitionOff() override { Stop(); }

    /// @return the samples of a time, the oldest first, as far as they are still known.
    std::vector<Sample> Between(Moment from, Moment to) const;
    /// @return how many lines were no samples.
    std::uint64_t Skipped() const { return skipped; }

protected:
    void Run() override;

private:
    void Open();
    void ReadBytes();
    void Complain(const std::string& problem);

    const Settings& settings;
    const std::string path;
    int descriptor = -1;      ///< -1: not open
    struct stat status = {};  ///< of the path when it was opened; it may name another file by now
    bool isFile = false;      ///< not a FIFO
    bool complained = false;
    std::string buffer;        ///< read, and not taken apart yet
    Moment newest;             ///< when the last line of a file was due
    Moment lastShock;          ///< when the force was last above the threshold
    mutable std::mutex mutex;  ///< guards samples
    Tolvex::Util::CircularBuffer<Sample> samples;
    std::atomic<std::uint64_t> skipped = 0;
};

}  // namespace Dashcam
