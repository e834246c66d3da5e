#pragma once

#include <string>

#include "Tolvex/Interfaces/IThread.h"

#include "examples/dashcam/Folder.h"

namespace Dashcam {

/// The worker that looks after the others and after the folder, once a second.
/// @par Thread safety
/// Controlling thread.
class Watch : public Tolvex::Interfaces::IThread
{
public:
    /// @param clips  Must outlive the worker.
    explicit Watch(Folder& clips);

protected:
    void Run() override;

private:
    void NameTheHanging();

    Folder& folder;
    std::string hanging;  ///< the workers that the log has named already
};

}  // namespace Dashcam
