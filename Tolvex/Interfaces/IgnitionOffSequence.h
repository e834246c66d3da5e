#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Tolvex/Interfaces/IError.h"
#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Types/Export.h"
#include "Tolvex/Util/DriveRecord.h"

namespace Tolvex::Base {
class BoundedThread;
}

namespace Tolvex::Interfaces {

/// Calls several participants in order when the ignition goes off, each within a time of its own.
///
/// A participant that takes longer than its budget is left behind: its call goes on on its own
/// thread, the next participant is called, and the log names the one that was left behind. All in
/// all RunIgnitionOff() takes no longer than the sum of the budgets and 50 ms, also when every
/// participant hangs, the log hangs, or the disk does.
///
/// With a record file the next start learns how this drive ended. The constructor reads the record
/// of the last drive, and writes "died", which holds until the destructor writes "stopped" or
/// RunIgnitionOff() writes "ignition off" and who was left behind.
///
/// The logger is a participant as well, mostly the last; it needs up to 2.5 s. See
/// examples/IgnitionOff.cpp.
/// @par Errors
/// Add() returns false and leaves the reason in the error text (IError). After the constructor
/// GetErrorText() tells which part of its work failed: without a thread for the log ("No thread for
/// the log") those that are left behind are not logged; without one for the record ("No thread for
/// the record") it goes on saying "died"; so it does when the disk does not take it in time, with
/// a line in the log when it refuses.
/// @par Thread safety
/// Caller serialises. Participants are called on threads of their own, one at a time, except for
/// those that are left behind. A forked child must not use the object, but may destroy it.
class TOLVEX_EXPORT IgnitionOffSequence : public IgnitionOffMode, public IError
{
public:
    /// @param recordFile  Path; empty for no record. Blocks as long as the file system does.
    explicit IgnitionOffSequence(const std::string& recordFile = std::string());

    /// Writes "stopped", unless the ignition went off. Blocks for 2 s at most; does not wait for
    /// those that are left behind.
    ~IgnitionOffSequence() override;

    IgnitionOffSequence(const IgnitionOffSequence&) = delete;
    IgnitionOffSequence& operator=(const IgnitionOffSequence&) = delete;

    /// Appends a participant, and creates the thread on which it will be called.
    ///
    /// The thread is made here because at ignition off it could be too late: without a thread the
    /// participant is not added.
    /// @param name         For the log and the record; not empty, without line breaks.
    /// @param participant  Not owned; must outlive the sequence, and its own call when it was left
    ///                     behind. An std::exception out of it is logged.
    /// @param budget       1 ms to 1 hour.
    /// @return false with "No participant", "Name not valid", "Budget not valid" or "No thread".
    bool Add(const std::string& name, IgnitionOffMode* participant,
             std::chrono::milliseconds budget);

    /// Calls the participants in the order in which they were added, then writes the record.
    ///
    /// Not cancelled meanwhile. Called again, it leaves out those that are still busy, and names
    /// them.
    void RunIgnitionOff() override;

    /// @return the participants that the last RunIgnitionOff() has left behind.
    std::vector<std::string> GetOverrun() const;

    /// @return how the last drive ended, as read by the constructor.
    const Util::DriveRecord& GetLastDrive() const { return lastDrive; }

private:
    struct Participant;
    using Deadline = std::chrono::steady_clock::time_point;

    void LogOverrun(const Participant& late, Deadline deadline);
    void WriteRecord(Util::DriveEnd end, Deadline deadline);

    std::vector<std::unique_ptr<Participant>> participants;  ///< in order of addition
    std::unique_ptr<Base::BoundedThread> logThread;          ///< null: could not be created
    std::unique_ptr<Base::BoundedThread> recordThread;       ///< null: no record, or as above
    Util::DriveRecord lastDrive;
    std::string recordPath;
    pid_t process;  ///< that has made the object, and the threads
    bool ignitionOff = false;
};

}  // namespace Tolvex::Interfaces
