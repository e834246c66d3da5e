#pragma once

#include "examples/dashcam/Folder.h"

namespace Dashcam {

/// The worker that looks after the folder and after all other workers, once a second. While the
/// disk is away, the log is closed.
/// @par Thread safety
/// Controlling thread.
class Watch : public Tolvex::Interfaces::IThread, public Tolvex::Interfaces::IgnitionOffMode
{
public:
    /// @param clips  Must outlive the worker.
    explicit Watch(Folder& clips) : folder(clips) { SetThreadName("Watch"); }

    /// Stops the worker.
    void RunIgnitionOff() override { Stop(); }

protected:
    void Run() override;

private:
    Folder& folder;
    void FollowDisk();

    bool wasAway = false;  ///< the disk, at the last look
    std::string named;     ///< the workers that the log has named already
};

}  // namespace Dashcam
